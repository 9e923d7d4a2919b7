// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "logfile/log_event.h"
#include "logfile/log_line.h"

namespace lnkd {

// Where the replayed daemon logs: standard output, in the form of the log that is replayed, with
// the time, process and thread of the line at which the replay is.
class Sink {
  public:
    static Sink& instance();

    // Lines that follow are of this line's time and thread.
    void moveTo(const LogLine& line);
    // They are of this time.
    void moveTo(int32_t date, int32_t ofDayMs);
    // Whether lines are dropped.
    void mute(bool on) { m_muted = on; }
    // Who hears of each line that the replayed daemon logs.
    void setListener(std::function<void(int32_t tid, const LogEvent& event)> listener);

    // A line of the replayed daemon.
    void log(char level, const char* tag, const char* text);
    // A line of the log itself, as it is.
    void copy(std::string_view line);
    // False when some could not be written.
    bool flush();

  private:
    LogLine m_at;
    bool m_muted = false;
    bool m_failed = false;
    std::function<void(int32_t, const LogEvent&)> m_listener;
    std::string m_buffer;
};

}  // namespace lnkd
