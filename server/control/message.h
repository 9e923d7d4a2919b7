// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace lnkd {

// Path of the control socket: a Unix-domain stream socket, open to every local process.
constexpr char kControlSocketPath[] = "/dev/socket/lnkd";

// What a message asks for. Numbers that are not listed are unknown messages.
enum MessageId : int32_t {
    kSetUidWhitelist = 1,         // comma-separated UIDs, or "NULL" for none
    kUpdateInterfaces = 2,        // comma-separated names of all interfaces that are up now
    kUpdateSlsInterfacesRtt = 4,  // a round-trip time in ms, decimal
    kStartSlsServer = 5,          // comma-separated UIDs of the game that starts
    kStopSlsServer = 6,           // the game ended; no argument
    kSetDblWlanUidWhitelist = 7,  // comma-separated UIDs, or "NULL" for none
    kSetVoipStatus = 8,           // UID of the application whose call starts, "0" when it ended
    kUpdateInterfaceBssid = 9,    // BSSID of wlan0, a comma, BSSID of wlan1
    kUpdateInterfaceMode = 18,    // "1" when cellular traffic is metered, else "0"
};

// Room for a message's text, its terminating NUL included, in bytes.
constexpr size_t kMessageTextSize = 1024;

// One control message, as it travels: host byte order, always whole, no framing.
struct msg_t {
    int32_t id;                      // a MessageId
    int32_t length;                  // length of the text; a message with 1024 or more is dropped
    char message[kMessageTextSize];  // the argument, NUL-terminated
};

static_assert(sizeof(msg_t) == 1032);
static_assert(offsetof(msg_t, length) == 4 && offsetof(msg_t, message) == 8);

}  // namespace lnkd
