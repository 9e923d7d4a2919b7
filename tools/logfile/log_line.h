// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

namespace lnkd {

// A line of a log in logcat's "threadtime" form, "MM-DD HH:MM:SS.mmm  PID  TID L TAG: TEXT". The
// texts are parts of the line that it was read from.
struct LogLine {
    int32_t month = 0;  // 1 to 12
    int32_t day = 0;
    int32_t ofDayMs = 0;  // since midnight, on the clock of the machine that logged
    int32_t pid = 0;
    int32_t tid = 0;
    char level = '?';  // V D I W E F
    std::string_view tag;
    std::string_view text;
};

// Reads one line, without its line end. False for one that has another form.
bool parseLogLine(std::string_view text, LogLine* line);

// Whether the daemon wrote it: by its tag, which other programs may use as well.
bool isDaemonLine(const LogLine& line);

}  // namespace lnkd
