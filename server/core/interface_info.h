// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace lnkd {

// One network interface that takes part in aggregation and selection. Texts are NUL-terminated.
// Immutable once it is in a table.
struct InterfaceInfo_t {
    char name[128];        // "wlan0", "wlan1", "rmnet_data0", "ccmni0"
    char routeTable[128];  // routing table of the interface's policy rule
    bool metered;          // traffic costs money (cellular)
    bool slave;            // the second Wi-Fi of a pair
    bool isDefault;        // a default interface
    int32_t cost;
    int32_t bias;
    char fwmark[128];  // "0x5A", "0x5B", "0x5C"
    char bssid[16];    // 12 hexadecimal digits, "ffffffffffff" when unknown
};

// The interfaces by name, in byte order of the names.
using InterfaceTable = std::map<std::string, std::shared_ptr<const InterfaceInfo_t>>;

// A table as it was at one moment. It stays whole and unchanged while it is held, whatever the
// control socket does meanwhile. Hold it in a variable for a walk: of `*parameters->interfaces()`
// in the head of a loop nothing is held.
using InterfaceSnapshot = std::shared_ptr<const InterfaceTable>;

}  // namespace lnkd
