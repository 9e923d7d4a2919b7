// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "logfile/log_event.h"
#include "logfile/log_line.h"

namespace lnkd {

// Tells the runs of the daemon in a log apart, each a process, and from other processes that write
// under its tags: a second daemon that ends at once, or a tool that reads its configuration.
class DaemonRuns {
  public:
    enum class Line {
        kOfRun,   // of the run that goes on
        kStarts,  // the first of a run
        kJoins,   // the first that the log has of a run, whose beginning it lacks
        kOther,   // of another process, or of a run that is over
    };

    Line take(const LogLine& line, const LogEvent& event);

  private:
    int32_t m_pid = -1;
    int32_t m_lastPid = -1;  // of the run before
};

}  // namespace lnkd
