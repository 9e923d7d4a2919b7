// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android-base/unique_fd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <ctime>

#include "selection/live_socket.h"

namespace lnkd {

// One interface's probe: what it measures against, and its socket while it runs.
struct sls_tcping_info {
    android::base::unique_fd sockFd;  // open for one probe only
    sockaddr_in serverAddr;           // network byte order, made from serverIp and port
    const char* ifaceName;            // the socket is bound to this device; null: to none
    const char* serverIp;             // dotted quad
    int32_t rtt;                      // ms, penalty included, of the last probe that succeeded
    int32_t port;                     // host byte order
    LiveSocket* liveSocket;           // where another thread can end the probe; null: nowhere
};

// Measures the round-trip time through one interface with a short TCP conversation: a connect
// within 500 ms, up to ten exchanges of random text, each within 500 ms, then what the kernel
// made of them (tcp_info.tcpi_rtt). A probe succeeds when the target answers the first text with
// anything or an orderly close.
class Tcping {
  public:
    // One whole probe. Returns the time in ms plus `penaltyMs`, or -1. Bounded: 500 ms to
    // connect, and twice 500 ms for each exchange. One that another thread ends returns at once.
    int updateTcpingRtt(sls_tcping_info* info, int penaltyMs);

    // Makes, configures and binds the socket. 0 or -1.
    int populateTcpingSocket(sls_tcping_info* info);
    // Connects, exchanges, reads the time and closes the socket. As updateTcpingRtt().
    int getTcpingRtt(sls_tcping_info* info, int penaltyMs);
    // Connects a socket within `timeout`. 0 when it was connected at once, a positive number when
    // that took a while, -1 when it failed or was not done in time. The socket's flags are as
    // before.
    int connect_with_timeout(int fd, const sockaddr* addr, unsigned addrlen, timespec timeout);
    // Fills `out`, `len` bytes, with letters and digits up to its last two bytes; the last becomes
    // NUL, the one before it stays. 0.
    int genRandomString(int len, char* out);

  private:
    // Talks with the server; the number of exchanges that succeeded.
    int exchange(int fd, const char* ifaceName);
};

// Waits for `events` on a descriptor until `deadline`, a time of the monotonic clock: a deadline
// on the wall clock would move with it, and the wait holds up every other probe. Returns the poll
// count, 0 when the time is over (errno ETIMEDOUT), a negative value on failure or a socket error
// (errno).
int retrying_poll(int fd, short events, const timespec* deadline);

}  // namespace lnkd
