// SPDX-License-Identifier: Apache-2.0
#include "net/sock_diag.h"

#include <android/log.h>
#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#define LOGE(...) __android_log_print(ANDROID_LOG_ERROR, "DVX-Lnkd-SockDiag", __VA_ARGS__)
#define LOGI(...) __android_log_print(ANDROID_LOG_INFO, "DVX-Lnkd-SockDiag", __VA_ARGS__)

namespace android {
namespace net {

namespace {

constexpr size_t kReadSize = 8192;        // bytes of one read of a dump
constexpr uint32_t kAllStates = 0xFFF;    // states 0 to 11
constexpr uint32_t kLiveTcpStates = 0xE;  // established, SYN sent, SYN received
constexpr uint8_t kTcpInfoExtension = 1 << (INET_DIAG_INFO - 1);

struct DiagRequest {
    nlmsghdr header;
    inet_diag_req_v2 body;
};
static_assert(sizeof(DiagRequest) == 72);

struct ErrorReply {
    nlmsghdr header;
    nlmsgerr body;
};
static_assert(sizeof(ErrorReply) == 36);
static_assert(sizeof(inet_diag_msg) == 72);

struct Family {
    uint8_t number;
    const char* label;
};
constexpr Family kFamilies[] = {{AF_INET, "IPv4"}, {AF_INET6, "IPv6"}};

size_t aligned(size_t length) {
    return (length + NLMSG_ALIGNTO - 1) & ~static_cast<size_t>(NLMSG_ALIGNTO - 1);
}

base::unique_fd openDiagSocket() {
    base::unique_fd fd(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (fd.ok() &&
        connect(fd.get(), reinterpret_cast<const sockaddr*>(&kernel), sizeof(kernel)) != 0) {
        const int error = errno;
        fd.reset();
        errno = error;
    }
    return fd;
}

// Takes an error reply that is waiting on the socket, if one is; other replies stay for the
// reader. Returns the error, 0 when there is none.
int waitingError(int fd) {
    ErrorReply reply{};
    const ssize_t peeked = recv(fd, &reply, sizeof(reply), MSG_PEEK | MSG_DONTWAIT);
    if (peeked < 0) {
        return errno == EAGAIN ? 0 : -errno;
    }
    if (peeked == sizeof(reply) && reply.header.nlmsg_type == NLMSG_ERROR) {
        recv(fd, &reply, sizeof(reply), 0);
        return reply.body.error;
    }
    return 0;
}

// The error code of an NLMSG_ERROR message; one too short to hold it is an error of its own.
int errorOf(const uint8_t* message, size_t length) {
    int32_t code = 0;
    if (length < sizeof(nlmsghdr) + sizeof(code)) {
        return -EBADMSG;
    }
    memcpy(&code, message + sizeof(nlmsghdr), sizeof(code));
    return code;
}

// Finds the tcp_info among the attributes of a socket's message, the last one if there are
// several.
tcp_info_ext findTcpInfo(const uint8_t* message, size_t length) {
    tcp_info_ext info;
    size_t offset = sizeof(nlmsghdr) + sizeof(inet_diag_msg);
    while (offset + sizeof(rtattr) <= length) {
        rtattr attribute{};
        memcpy(&attribute, message + offset, sizeof(attribute));
        if (attribute.rta_len < sizeof(rtattr) || attribute.rta_len > length - offset) {
            break;
        }
        if (attribute.rta_type == INET_DIAG_INFO) {
            info.bytes = message + offset + sizeof(rtattr);
            info.length = static_cast<uint32_t>(attribute.rta_len - sizeof(rtattr));
        }
        offset += aligned(attribute.rta_len);
    }
    return info;
}

bool isLoopback4(uint32_t address) {
    return ntohl(address) >> 24 == IN_LOOPBACKNET;
}

bool isLoopback6(const in6_addr& address) {
    if (IN6_IS_ADDR_V4MAPPED(&address)) {
        return address.s6_addr[12] == IN_LOOPBACKNET;
    }
    return IN6_IS_ADDR_LOOPBACK(&address);
}

}  // namespace

bool SockDiag::open() {
    if (dumpSocket.ok() && destroySocket.ok()) {
        return false;
    }
    base::unique_fd dump = openDiagSocket();
    base::unique_fd destroy = dump.ok() ? openDiagSocket() : base::unique_fd();
    if (!destroy.ok()) {
        const int error = errno;
        dump.reset();
        errno = error;
        return false;
    }
    dumpSocket = std::move(dump);
    destroySocket = std::move(destroy);
    return true;
}

int SockDiag::sendDumpRequest(uint8_t protocol, uint8_t family, uint8_t extensions, uint32_t states,
                              iovec* vectors, int vectorCount) {
    DiagRequest request{};
    request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.body.sdiag_family = family;
    request.body.sdiag_protocol = protocol;
    request.body.idiag_ext = extensions;
    request.body.idiag_states = states;
    vectors[0].iov_base = &request;
    vectors[0].iov_len = sizeof(request);
    size_t length = 0;
    for (int i = 0; i < vectorCount; ++i) {
        length += vectors[i].iov_len;
    }
    request.header.nlmsg_len = static_cast<uint32_t>(length);
    const ssize_t written = writev(dumpSocket.get(), vectors, vectorCount);
    vectors[0] = {};  // the request does not outlive this call
    if (written < 0 || static_cast<size_t>(written) != length) {
        return -errno;
    }
    return waitingError(dumpSocket.get());
}

int SockDiag::readDump(const MessageStep& step) {
    alignas(nlmsghdr) uint8_t buffer[kReadSize] = {};
    for (;;) {
        const ssize_t received = read(dumpSocket.get(), buffer, sizeof(buffer));
        if (received < 0) {
            return -errno;
        }
        if (received == 0) {
            return 0;
        }
        const uint8_t* message = buffer;
        auto remaining = static_cast<size_t>(received);
        while (remaining >= sizeof(nlmsghdr)) {
            nlmsghdr header{};
            memcpy(&header, message, sizeof(header));
            if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > remaining) {
                break;
            }
            if (header.nlmsg_type == NLMSG_DONE) {
                return 0;
            }
            if (header.nlmsg_type == NLMSG_ERROR) {
                return errorOf(message, header.nlmsg_len);
            }
            step(header, message, header.nlmsg_len);
            const size_t advance = std::min(aligned(header.nlmsg_len), remaining);
            message += advance;
            remaining -= advance;
        }
    }
}

int SockDiag::readDiagMsg(uint8_t protocol, const SocketPredicate& predicate) {
    std::vector<inet_diag_msg> found;
    const int error =
            readDump([&](const nlmsghdr& /*header*/, const uint8_t* message, size_t length) {
                if (length < sizeof(nlmsghdr) + sizeof(inet_diag_msg)) {
                    return;
                }
                inet_diag_msg msg{};
                memcpy(&msg, message + sizeof(nlmsghdr), sizeof(msg));
                if (predicate(protocol, &msg)) {
                    found.push_back(msg);
                }
            });
    // The kernel goes on with a dump by counting the sockets of a bucket, so it would pass over
    // one for each that is destroyed meanwhile.
    for (const inet_diag_msg& msg : found) {
        sockDestroy(protocol, &msg);  // one that cannot be destroyed is passed over
    }
    return error;
}

int SockDiag::readDiagMsgWithTcpInfo(const TcpInfoVisitor& visitor) {
    return readDump([&](const nlmsghdr& header, const uint8_t* message, size_t length) {
        if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY) {
            LOGE("expected nlmsg_type=SOCK_DIAG_BY_FAMILY, got nlmsg_type=%d", header.nlmsg_type);
            return;
        }
        if (length < sizeof(nlmsghdr) + sizeof(inet_diag_msg)) {
            return;
        }
        inet_diag_msg msg{};
        memcpy(&msg, message + sizeof(nlmsghdr), sizeof(msg));
        visitor(&msg, findTcpInfo(message, length));
    });
}

int SockDiag::sockDestroy(uint8_t protocol, const inet_diag_msg* msg) {
    if (msg == nullptr) {
        return 0;
    }
    DiagRequest request{};
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = SOCK_DESTROY;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.body.sdiag_family = msg->idiag_family;
    request.body.sdiag_protocol = protocol;
    request.body.idiag_states = 1U << (msg->idiag_state & 31U);
    request.body.id = msg->id;
    if (write(destroySocket.get(), &request, sizeof(request)) <
        static_cast<ssize_t>(sizeof(request))) {
        return -errno;
    }
    const int error = waitingError(destroySocket.get());
    if (error == 0) {
        ++destroyedCount;
    }
    return error;
}

int SockDiag::destroySockets(uint8_t protocol, uint32_t uid, bool skipLoopback) {
    destroyedCount = 0;
    const SocketPredicate belongs = [&](uint8_t /*protocol*/, const inet_diag_msg* msg) {
        return msg != nullptr && msg->idiag_uid == uid && !(skipLoopback && isLoopbackSocket(msg));
    };
    for (const Family& family : kFamilies) {
        iovec vectors[1] = {};
        int error = sendDumpRequest(protocol, family.number, 0, kAllStates, vectors, 1);
        if (error != 0) {
            LOGE("Failed to dump %s sockets for UID: %s", family.label, strerror(-error));
            return error;
        }
        error = readDiagMsg(protocol, belongs);
        if (error != 0) {
            LOGE("Failed to destroy %s sockets for UID: %s", family.label, strerror(-error));
            return error;
        }
    }
    if (destroyedCount > 0) {
        LOGI("Destroyed %d sockets for UID", destroyedCount);
    }
    return 0;
}

int SockDiag::getLiveTcpInfos(const TcpInfoVisitor& visitor) {
    for (const Family& family : kFamilies) {
        iovec vectors[1] = {};
        int error = sendDumpRequest(IPPROTO_TCP, family.number, kTcpInfoExtension, kLiveTcpStates,
                                    vectors, 1);
        if (error != 0) {
            LOGE("Failed to dump %s sockets struct tcp_info: %s", family.label, strerror(-error));
            return error;
        }
        error = readDiagMsgWithTcpInfo(visitor);
        if (error != 0) {
            LOGE("Failed to read %s sockets struct tcp_info: %s", family.label, strerror(-error));
            return error;
        }
    }
    return 0;
}

bool SockDiag::isLoopbackSocket(const inet_diag_msg* msg) {
    const inet_diag_sockid& id = msg->id;
    switch (msg->idiag_family) {
        case AF_INET:
            return isLoopback4(id.idiag_src[0]) || isLoopback4(id.idiag_dst[0]) ||
                   id.idiag_src[0] == id.idiag_dst[0];
        case AF_INET6: {
            in6_addr source{};
            in6_addr destination{};
            memcpy(&source, id.idiag_src, sizeof(source));
            memcpy(&destination, id.idiag_dst, sizeof(destination));
            return isLoopback6(source) || isLoopback6(destination) ||
                   IN6_ARE_ADDR_EQUAL(&source, &destination);
        }
        default:
            return false;
    }
}

}  // namespace net
}  // namespace android
