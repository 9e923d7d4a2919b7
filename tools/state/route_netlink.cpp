// SPDX-License-Identifier: Apache-2.0
#include "state/route_netlink.h"

#include <android-base/unique_fd.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "state/reading.h"

namespace lnkd {

using android::base::unique_fd;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::milliseconds kTimeLimit(1000);
constexpr int kAttempts = 3;           // of a dump that changes interrupt
constexpr size_t kBufferSize = 65536;  // bytes; the kernel fills at most 32 KiB at a time
constexpr char kThing[] = "routing (netlink)";

enum class DumpResult { kDone, kMore, kInterrupted, kFailed };

bool sendRequest(int fd, uint16_t type, uint8_t family) {
    struct {
        nlmsghdr header;
        rtmsg body;  // the longest fixed part that a request needs: its first byte is the family
    } request = {};
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = type;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.body.rtm_family = family;
    return send(fd, &request, sizeof(request), 0) == static_cast<ssize_t>(sizeof(request));
}

// Hands over the messages of one datagram. Sets errno for kFailed.
DumpResult takeDatagram(std::string_view bytes,
                        const std::function<void(const RouteMessage&)>& take) {
    DumpResult result = DumpResult::kMore;
    while (bytes.size() >= sizeof(nlmsghdr)) {
        nlmsghdr header;
        memcpy(&header, bytes.data(), sizeof(header));
        if (header.nlmsg_len < sizeof(header) || header.nlmsg_len > bytes.size()) {
            errno = EBADMSG;
            return DumpResult::kFailed;
        }
        const std::string_view body = bytes.substr(
                NLMSG_HDRLEN, header.nlmsg_len - std::min<size_t>(NLMSG_HDRLEN, header.nlmsg_len));
        if ((header.nlmsg_flags & NLM_F_DUMP_INTR) != 0) {
            return DumpResult::kInterrupted;
        }
        if (header.nlmsg_type == NLMSG_DONE) {  // also the end of a dump that failed
            int error = 0;
            memcpy(&error, body.data(), std::min(sizeof(error), body.size()));
            errno = -error;
            return error < 0 ? DumpResult::kFailed : DumpResult::kDone;
        }
        if (header.nlmsg_type == NLMSG_ERROR) {
            int error = -EBADMSG;
            memcpy(&error, body.data(), std::min(sizeof(error), body.size()));
            errno = -error;
            return DumpResult::kFailed;
        }
        take(RouteMessage(body));
        bytes.remove_prefix(std::min<size_t>(NLMSG_ALIGN(header.nlmsg_len), bytes.size()));
    }
    return result;
}

DumpResult receiveDump(int fd, Clock::time_point deadline,
                       const std::function<void(const RouteMessage&)>& take) {
    std::string buffer(kBufferSize, '\0');
    for (;;) {
        const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd polled{fd, POLLIN, 0};
        const int ready = left > 0 ? poll(&polled, 1, static_cast<int>(left)) : 0;
        if (ready == 0) {
            errno = ETIMEDOUT;
            return DumpResult::kFailed;
        }
        if (ready < 0 && errno != EINTR) {
            return DumpResult::kFailed;
        }
        const ssize_t n = ready < 0 ? 0 : recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (n < 0 && errno != EINTR && errno != EAGAIN) {
            return DumpResult::kFailed;
        }
        if (n > 0) {
            const DumpResult result = takeDatagram({buffer.data(), static_cast<size_t>(n)}, take);
            if (result != DumpResult::kMore) {
                return result;
            }
        }
    }
}

}  // namespace

bool RouteMessage::copy(std::string_view from, void* to, size_t size) {
    if (from.size() < size) {
        return false;
    }
    memcpy(to, from.data(), size);
    return true;
}

std::string_view RouteMessage::attribute(size_t headerSize, uint16_t type) const {
    std::string_view rest = m_body;
    rest.remove_prefix(std::min<size_t>(NLMSG_ALIGN(headerSize), rest.size()));
    rtattr attribute;
    while (copy(rest, &attribute, sizeof(attribute))) {
        if (attribute.rta_len < sizeof(attribute) || attribute.rta_len > rest.size()) {
            break;
        }
        if ((attribute.rta_type & NLA_TYPE_MASK) == type) {
            return rest.substr(sizeof(attribute), attribute.rta_len - sizeof(attribute));
        }
        rest.remove_prefix(std::min<size_t>(RTA_ALIGN(attribute.rta_len), rest.size()));
    }
    return {};
}

uint32_t RouteMessage::number(size_t headerSize, uint16_t type, uint32_t otherwise) const {
    uint32_t value = 0;
    return copy(attribute(headerSize, type), &value, sizeof(value)) ? value : otherwise;
}

std::string dumpRouting(uint16_t request, uint8_t family, const std::function<void()>& reset,
                        const std::function<void(const RouteMessage&)>& take) {
    const Clock::time_point deadline = Clock::now() + kTimeLimit;
    DumpResult result = DumpResult::kInterrupted;
    for (int attempt = 0; attempt < kAttempts && result == DumpResult::kInterrupted; ++attempt) {
        // A socket for each: what is left of an interrupted dump goes with its own.
        const unique_fd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
        if (!fd.ok() || !sendRequest(fd.get(), request, family)) {
            result = DumpResult::kFailed;
            break;
        }
        reset();
        result = receiveDump(fd.get(), deadline, take);
    }
    if (result == DumpResult::kInterrupted) {
        errno = EAGAIN;
    }
    if (result == DumpResult::kDone) {
        return "";
    }
    std::string problem = problemWith(kThing);
    reset();
    return problem;
}

}  // namespace lnkd
