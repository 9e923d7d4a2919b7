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
int destroyAndLog(android::net::SockDiag& diag, uint8_t protocol, const char* label,
                  uint32_t number, const char* uid) {
    const int result = diag.destroySockets(protocol, number, false);
    if (result < 0) {
        LNKD_LOGE(" SLA_GAMING Error destroying %s sockets: %s", label, strerror(-result));
    } else {
        LNKD_LOGE(" SLA_GAMING destroying %s sockets: %s", label, uid);
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
    destroyAndLog(diag, IPPROTO_TCP, "TCP", *number, uid);
    return destroyAndLog(diag, IPPROTO_UDP, "UDP", *number, uid);
}

}  // namespace lnkd
