// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <linux/inet_diag.h>
#include <netinet/in.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>

#include "net/sock_diag.h"

namespace lnkd {

// Finds the server of a running game: once a second it lists the live TCP sockets of the game's
// first UID, but for those to web ports, and makes the remote end with the most segments sent
// the target of the probes.
//
// One monitor at a time, built and ended by the control thread and, at teardown, ended by the
// main thread; its own thread does the rest.
class SlaTcpSocketMonitor {
  public:
    using Clock = std::chrono::steady_clock;

    // Returns the monitor; the first call builds it, paused.
    static SlaTcpSocketMonitor* instance();
    // Ends its thread and releases it, if there is one.
    static void finalize();

    SlaTcpSocketMonitor(const SlaTcpSocketMonitor&) = delete;
    SlaTcpSocketMonitor& operator=(const SlaTcpSocketMonitor&) = delete;

    // Ends the pause.
    void resumePolling();

    // One look at the sockets; nothing while paused. One that fails keeps what is known.
    void poll();
    // Makes the busiest remote end the target of the probes.
    void selectServer();

  private:
    friend class SlaTcpSocketMonitorPeer;  // unit tests of the selection

    // A remote end, as its socket was last seen.
    struct SlsSocket {
        uint32_t sentCount;  // segments; what the selection goes by
        uint32_t recvCount;  // segments
        char server[INET6_ADDRSTRLEN];
        uint32_t port;  // host byte order
        uint32_t uid;
        uint32_t rttUs;
        uint32_t oooPackets;
        uint32_t lastAckRecvMs;
        Clock::time_point lastSeen;
    };

    SlaTcpSocketMonitor();
    ~SlaTcpSocketMonitor();

    void run();
    bool isRunning();
    // Takes one socket of the listing; m_mutex is held.
    void updateSocketStats(Clock::time_point now, const inet_diag_msg* msg,
                           const android::net::tcp_info_ext* info, unsigned length);
    // Waits for the next poll, the end of the pause, or the end.
    void waitForNextPoll();

    std::mutex m_mutex;  // guards all below, and is held for a whole poll or selection
    std::condition_variable m_cond;
    const std::chrono::milliseconds m_pollInterval{1000};
    Clock::time_point m_lastPollTime{};  // of the last poll that succeeded
    bool m_paused = true;
    bool m_running = true;
    const uint32_t m_uid;
    // By remote port; sockets to the same port share an entry. Ordered, so that a tie always goes
    // to the lowest port.
    std::map<uint64_t, SlsSocket> m_sockets;
    std::thread m_pollThread;
};

}  // namespace lnkd
