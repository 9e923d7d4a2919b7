// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "core/thread.h"
#include "core/thread_annotations.h"
#include "selection/live_socket.h"

namespace lnkd {

// What link selection knows about one interface: its probes, smoothed into a round-trip time and
// rated as a network level, and the flags of the thread that probes it.
//
// Times are milliseconds. Round-trip times are called speeds here: a higher speed is a slower
// link, and -1 stands for a probe that failed. What setSpeed() reads and writes is guarded by the
// ping lock.
class InterfaceRtt {
  public:
    // Longest name, NUL included. A longer one must be refused before: cut, it would be another
    // interface.
    static constexpr size_t kNameSize = 15;

    // Levels that mean something of their own; rated ones are 2 to 11, higher is better. Wi-Fi
    // has the odd ones, so that a Wi-Fi and a cellular link never tie and Wi-Fi wins at a similar
    // time.
    static constexpr int32_t kNotRated = 0;
    static constexpr int32_t kFailed = 1;

    InterfaceRtt(const char* name, bool pingEnabled);

    // Feeds the result of one probe, a round-trip time or -1. Misses are bridged with the newest
    // sample until min_ping_times of them are open, and then mark the interface failed; an answer
    // takes one back. With min_ping_times 1 at creation the speed follows every result as it is
    // and nothing is rated.
    void setSpeed(int32_t rtt);

    // Whether the interface table has this one as the second Wi-Fi of a pair.
    bool isSlave() const;

    bool isPingEnabled() const { return m_pingEnabled.load(std::memory_order_relaxed); }
    void setPingEnabled(bool on) { m_pingEnabled.store(on, std::memory_order_relaxed); }
    bool isThreadRunning() const { return m_threadRunning.load(std::memory_order_relaxed); }
    // Clearing this also ends the thread's probe and wakes it from its sleep.
    void setThreadRunning(bool on) EXCLUDES(m_sleepMutex);
    // Sleeps for a time, or until the thread is to end.
    void sleepWhileRunning(int64_t ms) EXCLUDES(m_sleepMutex);

    char m_ifaceName[kNameSize] = {};
    // What a weak signal costs: added to every time measured on this interface, ms.
    std::atomic<int32_t> m_rssiPenaltyMs{0};
    int32_t m_networkLevel = kNotRated;
    int32_t m_speed = 0;       // smoothed; -1 while the interface is failed
    int32_t m_levelSpeed = 0;  // m_speed when the level was last set
    uint32_t m_pingMissCount = 0;
    std::vector<int32_t> m_longpreviousSpeed;   // the last ten samples, oldest first
    std::vector<int32_t> m_shortpreviousSpeed;  // the last three
    LiveSocket m_liveSocket;                    // of the thread's probe
    // The thread that probes; not joinable when there is none. Guarded by the selection map's
    // lock.
    Thread m_thread;

  private:
    // Puts a sample among the last ones.
    void remember(int32_t sample);
    // The smoothing step: the sample enters the speed with the next one, when it is part of the
    // averages; a history that is empty, or averages to 0, stands in with the sample itself.
    void caclaverageInterfaceSpeed(int32_t sample);
    // Rates m_speed. A step to the next band is only taken 20 ms beyond the speed that set the
    // present level.
    void caclInterfaceLevel();

    const int32_t m_minPingTimes;  // as at creation
    std::atomic<bool> m_pingEnabled;
    // Cleared inside the sleep's critical section, or a stop between the thread's look at it and
    // its wait would be lost.
    std::atomic<bool> m_threadRunning{true};
    Mutex m_sleepMutex;
    CondVar m_sleepCond;
};

}  // namespace lnkd
