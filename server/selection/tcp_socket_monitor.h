// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <linux/inet_diag.h>
#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

#include "core/thread.h"
#include "core/thread_annotations.h"
#include "net/sock_diag.h"

namespace lnkd {

// Finds the server of a running game: once a second it lists the live TCP sockets of the game's
// first UID, but for those to web ports and to where no probe can go (not IPv4, or this machine),
// and makes the remote end with the most segments sent the target of the probes. A first entry of
// the list that is no UID, or 0, has no sockets here.
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
    void resumePolling() EXCLUDES(m_mutex);

    // One look at the sockets; nothing while paused. One that fails keeps what is known.
    void poll() EXCLUDES(m_mutex);
    // Makes the busiest remote end the target of the probes.
    void selectServer() EXCLUDES(m_mutex);

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
    bool isRunning() EXCLUDES(m_mutex);
    // Takes one socket of the listing.
    void updateSocketStats(Clock::time_point now, const inet_diag_msg* msg,
                           const android::net::tcp_info_ext& info) REQUIRES(m_mutex);
    // Waits for the next poll, the end of the pause, or the end.
    void waitForNextPoll() EXCLUDES(m_mutex);

    Mutex m_mutex;  // held for a whole poll or selection
    CondVar m_cond;
    const std::chrono::milliseconds m_pollInterval{1000};
    const std::optional<uint32_t> m_uid;                     // none: no socket is watched
    Clock::time_point m_lastPollTime GUARDED_BY(m_mutex){};  // of the last poll that succeeded
    bool m_paused GUARDED_BY(m_mutex) = true;
    bool m_running GUARDED_BY(m_mutex) = true;
    // By remote port; sockets to the same port share an entry. Ordered, so that a tie always goes
    // to the lowest port.
    std::map<uint64_t, SlsSocket> m_sockets GUARDED_BY(m_mutex);
    Thread m_pollThread;  // touched by who builds and ends the monitor
};

}  // namespace lnkd
