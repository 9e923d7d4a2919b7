// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

#include "core/thread.h"
#include "core/thread_annotations.h"

namespace lnkd {

// Makes a weak Wi-Fi look slow. While a game or a call runs it reads, once a second, the signal of
// the access point of every associated Wi-Fi interface, and sets what is added to each round-trip
// time measured there:
//
//     -64 dBm and more     0 ms
//     -75 to -65          60 ms, and when there is no reading
//     -85 to -76         120 ms
//     below              300 ms
//
// So a Wi-Fi that fades loses to a second link while it still delivers. A positive reading is no
// signal and changes nothing.
//
// Built and ended by the control thread and, at teardown, ended by the main thread.
class RssiStateMonitor {
  public:
    // Returns the monitor; the first call builds it, and it starts at once.
    static RssiStateMonitor* instance();
    // Ends it, if there is one: destroys the sockets of the gaming UIDs, and joins its thread,
    // whose query in hand it ends.
    static void finalize();

    RssiStateMonitor(const RssiStateMonitor&) = delete;
    RssiStateMonitor& operator=(const RssiStateMonitor&) = delete;

    // What a signal in dBm, 0 for none, is to cost, in ms.
    static int32_t penaltyFor(int32_t rssi);

  private:
    RssiStateMonitor();
    ~RssiStateMonitor();

    void run() EXCLUDES(m_mutex);
    // One look at all interfaces.
    void poll() const REQUIRES(m_mutex);

    // Held for a whole look, so that none falls into the stop.
    Mutex m_mutex;
    CondVar m_cond;
    // Cleared without the lock, and a look sees it; the sleep sees it because of the lock's
    // section that follows.
    std::atomic<bool> m_running{true};
    Thread m_pollThread;  // touched by who builds and ends the monitor
};

}  // namespace lnkd
