// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "logfile/log_clock.h"
#include "logfile/log_event.h"

namespace lnkd {

// The shares of one pass. The daemon logs what they come from in one pass of six seconds, and what
// it puts into the rules each time that it builds them.
struct ShareRecord {
    struct Link {
        std::string name;
        float share;
        float oldShare;  // known when measured, as is the rate
        uint32_t rate;   // kbit/s
    };

    LogTime at;
    bool measured = false;  // rates and old shares are known
    bool rebuilt = false;   // the rules were built
    // Whether that is certain. Commands that follow a pass closely are its own, and those that come
    // a pass later are another's; between, nobody can tell.
    bool isCertain = true;
    std::vector<Link> links;
};

// Puts the lines of one daemon's passes together, by the thread that they come from.
class ShareReader {
  public:
    // Takes one event of a thread. True when a pass has ended before it, which is then in record().
    bool take(const LogTime& time, int32_t tid, const LogEvent& event);
    // Ends what the end of the log leaves; true as above.
    bool flush();
    const ShareRecord& record() const { return m_ended; }

  private:
    bool takeShare(const LogTime& time, const LogEvent& event);
    bool takeEmptied(const LogTime& time, int32_t tid);
    bool has(std::string_view link) const;

    ShareRecord m_record;  // in the making; without links there is none
    ShareRecord m_ended;
    bool m_isOpen = false;
    size_t m_rules = 0;  // of the rebuild so far
    int32_t m_tid = -1;
};

}  // namespace lnkd
