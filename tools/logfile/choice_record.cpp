// SPDX-License-Identifier: Apache-2.0
#include "logfile/choice_record.h"

#include <algorithm>

#include "core/text_values.h"

namespace lnkd {

namespace {

// Far above what a daemon writes: a log is a file from anywhere.
constexpr size_t kMostUids = 64;
constexpr size_t kLongestUid = 16;  // bytes

}  // namespace

int32_t ChoiceRecord::levelOf(const std::string& link) const {
    const auto found =
            std::find_if(candidates.begin(), candidates.end(),
                         [&link](const Candidate& candidate) { return candidate.link == link; });
    return found == candidates.end() ? 0 : found->level;
}

// Whether the line comes at its place; else the choice is given up.
bool ChoiceReader::expect(State state) {
    if (m_state == state) {
        return true;
    }
    m_incomplete += m_state == State::kIdle ? 0 : 1;
    m_state = State::kIdle;
    return false;
}

bool ChoiceReader::begin(const LogTime& time, const LogEvent& event) {
    constexpr size_t kMostCandidates = 64;
    if (m_state != State::kCandidates) {
        expect(State::kIdle);
        m_record = {};
        m_state = State::kCandidates;
    }
    if (event.kind == LogEventKind::kNoLink) {
        m_record.hasLink = false;
        m_record.at = m_record.endAt = time;
        return end();
    }
    if (m_record.candidates.size() < kMostCandidates) {
        m_record.candidates.push_back({std::string(event.link), event.level});
    }
    return false;
}

void ChoiceReader::decide(const LogTime& time, const LogEvent& event) {
    if (m_record.best.empty() || !expect(State::kCandidates)) {
        expect(State::kIdle);
        return;
    }
    m_record.at = m_record.endAt = time;
    m_record.elapsedMs = event.elapsedMs;
    m_record.windowMs = event.windowMs;
    m_state = State::kWindow;
    switch (event.kind) {
        case LogEventKind::kRefused:
            m_record.window = ChoiceRecord::Window::kRefused;
            break;
        case LogEventKind::kWindowOpen:
            m_record.window = ChoiceRecord::Window::kOpen;
            break;
        default:
            m_record.window = ChoiceRecord::Window::kOver;
            break;
    }
}

bool ChoiceReader::end() {
    m_state = State::kIdle;
    m_ended = std::move(m_record);
    m_record = {};
    return true;
}

bool ChoiceReader::flush() {
    const bool isRefused =
            m_state == State::kWindow && m_record.window == ChoiceRecord::Window::kRefused;
    return isRefused && end();
}

bool ChoiceReader::take(const LogTime& time, const LogEvent& event) {
    switch (event.kind) {
        case LogEventKind::kCandidate:
        case LogEventKind::kNoLink:
        case LogEventKind::kAnswer:
        case LogEventKind::kMiss:
        case LogEventKind::kPass:
        case LogEventKind::kFail:
        case LogEventKind::kUnrated:
            if (flush()) {
                add(time, event);
                return true;
            }
            return add(time, event);
        default:
            return add(time, event);
    }
}

bool ChoiceReader::add(const LogTime& time, const LogEvent& event) {
    switch (event.kind) {
        case LogEventKind::kCandidate:
        case LogEventKind::kNoLink:
            return begin(time, event);
        case LogEventKind::kBest:
            m_record.best = expect(State::kCandidates) ? event.link : std::string_view();
            return false;
        case LogEventKind::kWindowOver:
        case LogEventKind::kWindowOpen:
        case LogEventKind::kRefused:
            decide(time, event);
            return false;
        case LogEventKind::kSelected:
            if (!expect(State::kWindow) || !isInterfaceName(event.text)) {
                return false;
            }
            m_record.selected = event.link;
            m_record.previous = event.text == "NULL" ? std::string_view() : event.text;
            m_state = State::kSelected;
            return m_record.selected == m_record.previous && end();
        case LogEventKind::kSwitch:
            m_state = expect(State::kSelected) ? State::kSwitching : State::kIdle;
            return false;
        case LogEventKind::kKillingUid:
            if (m_state == State::kSwitching && m_record.uids.size() < kMostUids) {
                m_record.uids.emplace_back(event.text.substr(0, kLongestUid));
            }
            return false;
        case LogEventKind::kKilled:
            m_record.sockets += m_state == State::kSwitching ? std::max(event.number, 0) : 0;
            return false;
        case LogEventKind::kSwitchDone:
            m_record.switched = expect(State::kSwitching);
            m_record.switchesBefore = event.number;
            m_record.endAt = time;
            return m_record.switched && end();
        default:
            return false;
    }
}

}  // namespace lnkd
