// SPDX-License-Identifier: Apache-2.0
#include "doctor/socket_trials.h"

#include <android-base/unique_fd.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "doctor/quiet_log.h"
#include "net/sock_diag.h"

namespace lnkd {

namespace {

// A socket that somebody else has closed has this error to tell.
bool isDestroyed(int fd) {
    int error = 0;
    socklen_t length = sizeof(error);
    return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == ECONNABORTED;
}

Need tryDestroying(const Need& need, int type, uint8_t protocol) {
    const android::base::unique_fd fd(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    sockaddr_in any{};
    any.sin_family = AF_INET;
    if (!fd.ok() || bind(fd.get(), reinterpret_cast<const sockaddr*>(&any), sizeof(any)) != 0 ||
        (type == SOCK_STREAM && listen(fd.get(), 1) != 0)) {
        return need.unknown(std::string("no socket to try it on: ") + strerror(errno));
    }
    android::net::SockDiag diagnostics;
    if (!diagnostics.open()) {
        return need.missing(std::string("socket diagnostics: ") + strerror(errno));
    }
    const int result = diagnostics.destroySockets(protocol, geteuid(), false);
    if (isDestroyed(fd.get())) {
        return need.met(need.thing);
    }
    return need.missing(need.thing + ": " +
                        (result == 0 ? "the kernel does not destroy it" : strerror(-result)));
}

Need tryListing(const Need& need) {
    android::net::SockDiag diagnostics;
    const int result =
            diagnostics.open()
                    ? diagnostics.getLiveTcpInfos(
                              [](const inet_diag_msg*, const android::net::tcp_info_ext&) {})
                    : -errno;
    return result == 0 ? need.met(need.thing) : need.missing(need.thing + ": " + strerror(-result));
}

}  // namespace

Needs trySockets(const PrivateNetwork& network) {
    const Need list{"sockets", "list", false, "the probes do not follow a game to its server",
                    "a kernel with CONFIG_INET_TCP_DIAG"};
    const Need tcp{"sockets", "destroy TCP", false, "a game stays on its old link after a switch",
                   "a kernel with CONFIG_INET_DIAG_DESTROY"};
    const Need udp{"sockets", "destroy UDP", false, "a game stays on its old link after a switch",
                   "a kernel with CONFIG_INET_UDP_DIAG and CONFIG_INET_DIAG_DESTROY"};
    const std::string problem =
            network.problem().empty() ? PrivateNetwork::notEntered : network.problem();
    Needs needs = {list.unknown(problem), tcp.unknown(problem), udp.unknown(problem)};
    const QuietLog quiet;
    network.run([&] {
        needs = {tryListing(list), tryDestroying(tcp, SOCK_STREAM, IPPROTO_TCP),
                 tryDestroying(udp, SOCK_DGRAM, IPPROTO_UDP)};
    });
    return needs;
}

}  // namespace lnkd
