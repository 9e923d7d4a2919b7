// SPDX-License-Identifier: Apache-2.0
#include "logfile/share_record.h"

#include <algorithm>
#include <utility>

namespace lnkd {

namespace {

constexpr size_t kMostLinks = 64;
constexpr int64_t kSamePassMs = 10;
constexpr int64_t kOtherPassMs = 500;

bool emptiesRules(const LogEvent& event) {
    constexpr std::string_view kEnd = " -F zelk_SLA";
    return event.kind == LogEventKind::kCommand && event.text.size() > kEnd.size() &&
           event.text.substr(event.text.size() - kEnd.size()) == kEnd;
}

}  // namespace

bool ShareReader::has(std::string_view link) const {
    return std::any_of(m_record.links.begin(), m_record.links.end(),
                       [link](const ShareRecord::Link& known) { return known.name == link; });
}

bool ShareReader::flush() {
    if (!m_isOpen) {
        return false;
    }
    m_isOpen = false;
    m_ended = std::move(m_record);
    m_record = {};
    // A chain that was emptied because a link went holds no rules.
    return m_ended.measured || m_rules > 0;
}

bool ShareReader::takeShare(const LogTime& time, const LogEvent& event) {
    const bool isNext = m_isOpen && m_record.measured && !m_record.rebuilt && !has(event.link);
    const bool ended = !isNext && flush();
    if (!isNext) {
        m_record = {};
        m_record.at = time;
        m_record.measured = true;
        m_isOpen = true;
        m_rules = 0;
    }
    if (m_record.links.size() < kMostLinks) {
        m_record.links.push_back(
                {std::string(event.link), event.share, event.oldShare, event.rate});
    }
    return ended;
}

bool ShareReader::takeEmptied(const LogTime& time, int32_t tid) {
    const int64_t delay = time.ms - m_record.at.ms;
    const bool isSamePass = m_isOpen && tid == m_tid && m_record.measured && !m_record.rebuilt &&
                            delay <= kOtherPassMs;
    const bool ended = !isSamePass && flush();
    if (!isSamePass) {
        m_record = {};
        m_record.at = time;
        m_isOpen = true;
        m_tid = tid;
    }
    m_record.rebuilt = true;
    m_record.isCertain = !isSamePass || delay <= kSamePassMs;
    m_rules = 0;
    return ended;
}

bool ShareReader::take(const LogTime& time, int32_t tid, const LogEvent& event) {
    if (event.kind == LogEventKind::kShare) {
        const bool ended = tid != m_tid && flush();
        m_tid = tid;
        return takeShare(time, event) || ended;
    }
    if (emptiesRules(event)) {
        return takeEmptied(time, tid);
    }
    if (!m_isOpen || tid != m_tid) {
        return false;
    }
    if (event.kind == LogEventKind::kRule && m_record.rebuilt) {
        ++m_rules;
        if (!m_record.measured && !has(event.link) && m_record.links.size() < kMostLinks) {
            m_record.links.push_back({std::string(event.link), event.share, 0, 0});
        }
        return false;
    }
    const bool goesOn =
            m_record.rebuilt &&
            (event.kind == LogEventKind::kCommand || event.kind == LogEventKind::kReply ||
             event.kind == LogEventKind::kOther || event.kind == LogEventKind::kFailure);
    return !goesOn && flush();
}

}  // namespace lnkd
