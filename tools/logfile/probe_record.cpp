// SPDX-License-Identifier: Apache-2.0
#include "logfile/probe_record.h"

namespace lnkd {

bool ProbeReader::take(const LogTime& time, int32_t tid, const LogEvent& event) {
    constexpr size_t kMostThreads = 256;  // far more than links; those that are gone add up
    switch (event.kind) {
        case LogEventKind::kAnswer:
        case LogEventKind::kMiss:
        case LogEventKind::kPass:
        case LogEventKind::kFail:
        case LogEventKind::kLevel:
        case LogEventKind::kUnrated:
            break;
        default:
            return false;
    }
    if (m_pending.size() >= kMostThreads && m_pending.count(tid) == 0) {
        m_pending.clear();
    }
    Pending& pending = m_pending[tid];
    switch (event.kind) {
        case LogEventKind::kAnswer:
            pending = {};
            pending.answered = true;
            pending.answerMs = event.rttMs;
            return false;
        case LogEventKind::kMiss:
            pending = {};
            pending.missed = true;
            pending.record.openMisses = event.number;
            return false;
        case LogEventKind::kPass:
            pending.hasResult = true;
            pending.record.rttMs = pending.missed ? -1 : event.rttMs;
            pending.record.averageMs = event.averageMs;
            pending.record.alpha = event.alpha;
            return false;
        case LogEventKind::kFail:
            // With a limit of 0 also an answer fails the link.
            pending.hasResult = true;
            pending.record.rttMs = pending.answered ? pending.answerMs : -1;
            pending.record.averageMs = -1;
            pending.record.alpha = event.alpha;
            pending.record.failed = true;
            return false;
        default:
            return end(pending, time, tid, event);
    }
}

bool ProbeReader::end(Pending& pending, const LogTime& time, int32_t tid, const LogEvent& event) {
    const bool isRated = event.kind == LogEventKind::kLevel;
    const bool isWhole = !isRated || pending.hasResult;
    m_record = pending.record;
    m_record.at = time;
    m_record.tid = tid;
    m_record.link = event.link;
    m_record.level = event.level;
    if (!isRated) {
        m_record.rated = false;
        m_record.rttMs = pending.answered ? pending.answerMs : -1;
    }
    pending = {};
    return isWhole;
}

}  // namespace lnkd
