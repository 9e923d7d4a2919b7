// SPDX-License-Identifier: Apache-2.0
#include "logfile/log_clock.h"

#include <algorithm>
#include <cstdio>

namespace lnkd {

namespace {

constexpr int64_t kDayMs = int64_t{24} * 3600 * 1000;
constexpr int64_t kYearMs = 366 * kDayMs;
constexpr int64_t kOutOfOrderMs = 1000;
// Days of a leap year before each month.
constexpr int32_t kDaysBefore[] = {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335};

constexpr int32_t kLastOfFebruary = 228;
constexpr int32_t kFirstOfMarch = 301;

}  // namespace

std::string LogTime::timeOfDay() const {
    char text[24];
    snprintf(text, sizeof(text), "%02d:%02d:%02d.%03d", ofDayMs / 3600000, ofDayMs / 60000 % 60,
             ofDayMs / 1000 % 60, ofDayMs % 1000);
    return text;
}

std::string LogTime::stamp() const {
    char day[16];
    snprintf(day, sizeof(day), "%02d-%02d ", date / 100, date % 100);
    return day + timeOfDay();
}

LogTime LogClock::timeOf(const LogLine& line) {
    LogTime time;
    time.date = line.month * 100 + line.day;
    time.ofDayMs = line.ofDayMs;
    const int64_t inYear =
            (kDaysBefore[line.month - 1] + line.day - 1) * kDayMs + int64_t{line.ofDayMs};
    if (!m_started) {
        m_started = true;
        m_lastWallMs = inYear;
        m_lastDate = time.date;
    }
    const int64_t turn = turnAt(time.date, m_yearMs + inYear);
    time.wallMs = m_yearMs + turn + inYear;
    const int64_t step = time.wallMs - m_lastWallMs;
    if (step <= -kOutOfOrderMs) {
        ++m_setBacks;
    }
    if (step > 0 || step <= -kOutOfOrderMs) {
        m_ms += step > 0 && step <= kDayMs ? step : 0;
        m_yearMs += turn;
        m_lastWallMs = time.wallMs;
        m_lastDate = time.date;
    }
    time.ms = m_ms;
    return time;
}

// What a turn of the year, or of the February of a common year, adds to a stamp. A line that
// another thread wrote before such a turn and the log has behind it belongs to before.
int64_t LogClock::turnAt(int32_t date, int64_t wallMs) const {
    const auto isBefore = [this](int64_t ms, int64_t atMost) {
        return ms <= m_lastWallMs && ms > m_lastWallMs - atMost;
    };
    if (wallMs < m_lastWallMs - kYearMs / 2) {
        return kYearMs;
    }
    if (isBefore(wallMs - kYearMs, kDayMs)) {
        return -kYearMs;  // or of a clock that was set back over it
    }
    if (m_lastDate == kLastOfFebruary && date == kFirstOfMarch) {
        return -kDayMs;  // a log that passes over the 29th is of a common year
    }
    if (m_lastDate == kFirstOfMarch && date == kLastOfFebruary &&
        isBefore(wallMs + kDayMs, kOutOfOrderMs)) {
        return kDayMs;
    }
    return 0;
}

}  // namespace lnkd
