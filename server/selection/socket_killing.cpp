// SPDX-License-Identifier: Apache-2.0
#include "selection/socket_killing.h"

#include <netinet/in.h>

#include <cerrno>
#include <cstring>

#include "core/text_values.h"
#include "net/sock_diag.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SockDiag"
#include "core/log.h"

namespace lnkd {

namespace {

// Both outcomes are errors to the log: a destroyed socket is an error to the application.
void destroyTcpSockets(android::net::SockDiag& diag, uint32_t number, const char* uid) {
    const int result = diag.destroySockets(IPPROTO_TCP, number, false);
    if (result < 0) {
        LNKD_LOGE(" SLA_GAMING Error destroying TCP sockets: %s", strerror(-result));
    } else {
        LNKD_LOGE(" SLA_GAMING destroying TCP sockets: %s", uid);
    }
}

int destroyUdpSockets(android::net::SockDiag& diag, uint32_t number, const char* uid) {
    const int result = diag.destroySockets(IPPROTO_UDP, number, false);
    if (result < 0) {
        LNKD_LOGE(" SLA_GAMING Error destroying UDP sockets: %s", strerror(-result));
    } else {
        LNKD_LOGE(" SLA_GAMING destroying UDP sockets: %s", uid);
    }
    return result;
}

}  // namespace

int killSocketsForUID(const char* uid) {
    const auto number = parseUid(uid);
    if (!number.has_value() || *number == 0) {
        LNKD_LOGE(" SLA_GAMING not a UID whose sockets may be destroyed: %s", uid);
        return -1;
    }
    android::net::SockDiag diag;
    if (!diag.open()) {
        LNKD_LOGE(" SLA_GAMING Error opening NETLINK_SOCK_DIAG socket: %s", strerror(errno));
        return -1;
    }
    destroyTcpSockets(diag, *number, uid);
    return destroyUdpSockets(diag, *number, uid);
}

}  // namespace lnkd
