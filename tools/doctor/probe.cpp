// SPDX-License-Identifier: Apache-2.0
#include "doctor/probe.h"

#include <android-base/unique_fd.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "core/config_file.h"

namespace lnkd {

namespace {

using Clock = std::chrono::steady_clock;

int64_t msSince(Clock::time_point begin) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
}

// A connection that has begun, or the error that it has ended with at once.
android::base::unique_fd beginConnection(const std::string& link, const sockaddr_in& server,
                                         int* error) {
    android::base::unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool isBegun =
            fd.ok() &&
            setsockopt(fd.get(), SOL_SOCKET, SO_BINDTODEVICE, link.c_str(),
                       static_cast<socklen_t>(link.size())) == 0 &&
            (connect(fd.get(), reinterpret_cast<const sockaddr*>(&server), sizeof(server)) == 0 ||
             errno == EINPROGRESS);
    if (!isBegun) {
        *error = errno;
        fd.reset();
    }
    return fd;
}

int connectError(int fd) {
    int error = 0;
    socklen_t length = sizeof(error);
    return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

}  // namespace

std::vector<Reach> reachOver(const std::vector<std::string>& links, const ProbeTarget& target) {
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(static_cast<uint16_t>(target.port));
    server.sin_addr.s_addr = inet_addr(target.server.c_str());

    const Clock::time_point begin = Clock::now();
    std::vector<Reach> reached(links.size());
    std::vector<android::base::unique_fd> connections;
    std::vector<pollfd> waiting;  // -1: not waited for
    for (size_t i = 0; i < links.size(); ++i) {
        reached[i].error = ETIMEDOUT;
        connections.push_back(beginConnection(links[i], server, &reached[i].error));
        waiting.push_back({connections.back().get(), POLLOUT, 0});
    }
    const auto isWaited = [](const pollfd& one) { return one.fd >= 0; };
    while (std::any_of(waiting.begin(), waiting.end(), isWaited)) {
        const int64_t left = kProbeDeadlineMs - msSince(begin);
        if (left <= 0 || poll(waiting.data(), waiting.size(), static_cast<int>(left)) < 0) {
            break;
        }
        for (size_t i = 0; i < links.size(); ++i) {
            if (waiting[i].fd >= 0 && waiting[i].revents != 0) {
                reached[i].error = connectError(waiting[i].fd);
                if (reached[i].error == 0) {
                    reached[i].connectedAfterMs = msSince(begin);
                }
                waiting[i].fd = -1;
            }
        }
    }
    return reached;
}

ProbeTarget configuredProbeTarget() {
    Parameters store;
    std::string content;
    if (readConfigFile(kConfFile, content)) {
        for (const ConfigLine& line : configLines(content)) {
            store.fromVector({line.text});
        }
    }
    return store.probeTarget();
}

}  // namespace lnkd
