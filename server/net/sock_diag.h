// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android-base/unique_fd.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace android {
namespace net {

// The kernel's struct tcp_info as it arrived, within a buffer that is not its own: its length
// differs between kernel versions, so a reader checks that before it reads a field.
struct tcp_info_ext {
    const uint8_t* bytes = nullptr;  // null when the kernel gave none
    uint32_t length = 0;
};

// Client of the kernel's socket diagnostics: destroys every socket of a UID, and lists the live
// TCP sockets. One thread at a time; all calls block; nothing is retried.
//
// linux/sock_diag.h, linux/inet_diag.h, linux/netlink.h: all fields in host byte order but the
// addresses and ports of inet_diag_sockid, which are in network byte order.
//
// Operations that return int give 0 or a negative errno value, the kernel's own error replies
// included. What the kernel sends is not trusted: nothing outside the bytes received is read.
class SockDiag {
  public:
    // Whether a socket is to be destroyed.
    using SocketPredicate = std::function<bool(uint8_t protocol, const inet_diag_msg* msg)>;
    // Sees one socket. What it is shown dies with the call.
    using TcpInfoVisitor = std::function<void(const inet_diag_msg* msg, const tcp_info_ext& info)>;

    SockDiag() = default;
    virtual ~SockDiag() = default;
    SockDiag(const SockDiag&) = delete;
    SockDiag& operator=(const SockDiag&) = delete;

    // Opens the two sockets; false, with errno set, when that fails, and without effect when they
    // are open.
    bool open();

    // Destroys all sockets of `protocol` (IPPROTO_TCP, IPPROTO_UDP) that belong to `uid`, IPv4
    // and IPv6, in every state, but for those within this machine when `skipLoopback`. A socket
    // that the kernel does not destroy is passed over.
    int destroySockets(uint8_t protocol, uint32_t uid, bool skipLoopback);

    // Shows `visitor` every TCP socket that is connected or connecting, IPv4 first.
    int getLiveTcpInfos(const TcpInfoVisitor& visitor);

    // The steps of the two above.

    // Asks for a dump of the sockets of a family in the states of the mask `states` (bit n =
    // state n). The request takes the first of the `vectorCount` entries of `vectors`; what the
    // others hold follows it.
    int sendDumpRequest(uint8_t protocol, uint8_t family, uint8_t extensions, uint32_t states,
                        iovec* vectors, int vectorCount);
    // Read the replies to the end of the dump. The sockets that `predicate` wants are destroyed
    // then, also when the dump ended with an error.
    int readDiagMsg(uint8_t protocol, const SocketPredicate& predicate);
    int readDiagMsgWithTcpInfo(const TcpInfoVisitor& visitor);
    // Destroys one socket, as a dump described it.
    int sockDestroy(uint8_t protocol, const inet_diag_msg* msg);
    // Whether both ends are on this machine, by their addresses.
    static bool isLoopbackSocket(const inet_diag_msg* msg);

  protected:
    // Requests to destroy and their error replies have a socket of their own: whatever is left of
    // a dump does not mix with them.
    base::unique_fd dumpSocket;
    base::unique_fd destroySocket;

  private:
    // One message of a dump: its header, and the `length` bytes from the header on.
    using MessageStep =
            std::function<void(const nlmsghdr& header, const uint8_t* message, size_t length)>;

    int readDump(const MessageStep& step);

    int destroyedCount = 0;  // by the destroySockets() that runs
};

}  // namespace net
}  // namespace android
