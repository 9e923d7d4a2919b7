// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "status/observation.h"

namespace lnkd {

// Whether there is a daemon, and what it left when there is none.
enum class DaemonState {
    kRunning,
    kStopped,    // none, and nothing of one
    kDisabled,   // its process idles and its rules are down: it was told so by property
    kLeftovers,  // none, but chains or policy rules of one that was killed
    kUnknown,    // what would tell cannot be read
};

// Who may use a link.
enum class Users { kAll, kWhitelist, kSecondWifiList };

// A link of the daemon: one that has a mark chain. Without a value: not known, or there is none.
struct LinkPicture {
    std::string name;
    bool isThere = false;  // the interface
    bool isUp = false;
    bool hasCarrier = false;
    std::vector<std::string> addresses;
    std::optional<uint32_t> mark;
    std::optional<uint32_t> table;  // the number of the routing table of its name
    bool hasPolicyRule = false;     // from that mark to that table
    std::optional<bool> hasDefaultRoute;
    std::optional<bool> metered;
    Users users = Users::kAll;
    std::optional<double> share;    // 0 to 1, of the new web connections of those who may use it
    uint64_t dealtConnections = 0;  // by the share rules, since they were last made
    uint64_t newConnections = 0;    // that left by it, since it became a link
    uint64_t steeredBytes = 0;      // that the rules marked for it, since it became a link
    std::optional<size_t> connections;  // tracked ones with its mark
    std::optional<double> bitsPerSecond;
    std::optional<int64_t> statisticsAgeMs;
    ProbeResult probe;
    bool isSelected = false;
};

// A list of UIDs, as the chains enforce it; none when no chain tells.
using UidList = std::optional<std::vector<std::string>>;

// What an observation comes to.
struct Picture {
    DaemonState daemonState = DaemonState::kUnknown;
    std::optional<DaemonProcess> daemon;
    size_t leftChains = 0;  // chains that begin with zelk_
    size_t leftRules = 0;   // policy rules of the daemon's priority and marks
    bool isHooked = false;  // traffic of applications is led to the chains
    std::vector<LinkPicture> links;
    std::optional<double> defaultShare;  // of new web connections that keep the default route
    std::vector<std::string> entry;      // UIDs that are led to the chains, each once
    UidList whitelist;
    UidList secondWifi;
    UidList gaming;  // of the game or call; while none runs, of the last one
    bool isSelecting = false;
    std::string selected;  // the link of the game or call; empty when none is chosen
};

Picture pictureOf(const Observation& seen);

}  // namespace lnkd
