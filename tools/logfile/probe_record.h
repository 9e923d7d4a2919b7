// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "logfile/log_clock.h"
#include "logfile/log_event.h"

namespace lnkd {

// The result of one probe and what the daemon made of it, from its two to four lines.
struct ProbeRecord {
    LogTime at;
    std::string link;
    int32_t tid = 0;
    int32_t rttMs = -1;      // penalty included; -1: a miss
    int32_t alpha = -1;      // percent; -1: not told
    int32_t openMisses = 0;  // after it, when it was a miss that is bridged or made the link fail
    bool failed = false;     // so many misses that the link counts as failed
    bool rated = true;       // false with min_ping_times 1: then nothing below is known
    int32_t averageMs = 0;   // -1 when failed
    int32_t level = 0;
};

// Puts the lines of one daemon's probes together, by the thread that they come from.
class ProbeReader {
  public:
    // Takes one event of a thread. True when it ends a probe, which is then in record().
    bool take(const LogTime& time, int32_t tid, const LogEvent& event);
    const ProbeRecord& record() const { return m_record; }

  private:
    struct Pending {
        bool answered = false;
        bool missed = false;
        int32_t answerMs = -1;
        bool hasResult = false;
        ProbeRecord record;
    };

    bool end(Pending& pending, const LogTime& time, int32_t tid, const LogEvent& event);

    std::map<int32_t, Pending> m_pending;  // by thread
    ProbeRecord m_record;
};

}  // namespace lnkd
