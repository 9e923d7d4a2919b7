// SPDX-License-Identifier: Apache-2.0
#include "logfile/daemon_runs.h"

#include <utility>

namespace lnkd {

namespace {

// What only a daemon at work logs.
bool isAtWork(LogEventKind kind) {
    return kind == LogEventKind::kMessage || kind == LogEventKind::kShare ||
           kind == LogEventKind::kCandidate || kind == LogEventKind::kPass;
}

}  // namespace

DaemonRuns::Line DaemonRuns::take(const LogLine& line, const LogEvent& event) {
    if (event.kind == LogEventKind::kSecondDaemon) {
        return Line::kOther;
    }
    const bool isStart = event.kind == LogEventKind::kStart;
    if (!isStart && line.pid == m_pid) {
        return Line::kOfRun;
    }
    const bool isJoin = m_pid < 0 || (line.pid != m_lastPid && isAtWork(event.kind));
    if (!isStart && !isJoin) {
        return Line::kOther;
    }
    m_lastPid = std::exchange(m_pid, line.pid);
    return isStart ? Line::kStarts : Line::kJoins;
}

}  // namespace lnkd
