// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "logfile/log_line.h"

namespace lnkd {

// When a line was written.
struct LogTime {
    int64_t ms = 0;      // since the first line; never less than that of an earlier line
    int64_t wallMs = 0;  // of the logging clock, since a 1 January; goes back when that is set back
    int32_t date = 0;    // month times 100, and the day
    int32_t ofDayMs = 0;

    std::string timeOfDay() const;  // "09:51:07.078"
    std::string stamp() const;      // "11-25 09:51:07.078"
};

// Puts the lines of a log, whose stamps have no year, on one axis.
//
// A stamp that falls by more than half a year is a new year's. One that falls by less is of a clock
// that was set back: what passed meanwhile is not known and counts as nothing, and so does a leap
// of more than a day, as a phone makes when it learns the time after its start.
class LogClock {
  public:
    LogTime timeOf(const LogLine& line);

    // How often the clock was set back by a second or more; lines of different threads are out of
    // order by less.
    int32_t setBacks() const { return m_setBacks; }

  private:
    int64_t turnAt(int32_t date, int64_t wallMs) const;

    bool m_started = false;
    int64_t m_yearMs = 0;  // what the years, and days that a year lacked, add to a stamp
    int64_t m_lastWallMs = 0;
    int32_t m_lastDate = 0;
    int64_t m_ms = 0;
    int32_t m_setBacks = 0;
};

}  // namespace lnkd
