// SPDX-License-Identifier: Apache-2.0
// Which links take part in a replay, and from when on.
#include <algorithm>

#include "core/parameters.h"
#include "replay/log_replay.h"
#include "replay/sink.h"

namespace lnkd {

void LogReplay::takeLinks(const LogEvent& event) {
    const std::string link(event.link);
    Sink::instance().mute(true);
    switch (event.kind) {
        case LogEventKind::kTableAdded:
            Parameters::instance()->UpdateInterface(link.c_str(), true);
            break;
        case LogEventKind::kTableRemoved:
            Parameters::instance()->UpdateInterface(link.c_str(), false);
            break;
        case LogEventKind::kChoiceAdded:
            if (m_isRunning) {
                ensure(link);
                m_engine.add(link);
            }
            m_threads.erase(link);
            break;
        default:
            m_engine.remove(link);
            m_threads.erase(link);
            break;
    }
    Sink::instance().mute(false);
}

void LogReplay::ensure(const std::string& link) {
    Parameters* const parameters = Parameters::instance();
    if (parameters->findInterface(link) == nullptr) {
        parameters->UpdateInterface(link.c_str(), true);
    }
}

InterfaceRtt* LogReplay::recordOf(const std::string& link) {
    if (!m_isRunning && !m_mayJoin) {
        return nullptr;
    }
    // The daemon has no more links, and none of a longer name; a log may speak of what it likes.
    ensure(link);
    if (m_engine.find(link) == nullptr) {
        m_engine.add(link);
    }
    return m_engine.find(link);
}

void LogReplay::start() {
    m_threads.clear();
    m_engine.start();
    m_yardstick.clear();
    m_yards.clear();
    m_isStarting = false;
    m_isRunning = true;
}

void LogReplay::join(const ProbeRecord& probe, InterfaceRtt& record) {
    if (probe.alpha >= 0 && !isChanged("alpha_percent")) {
        Parameters::instance()->alpha_percent = probe.alpha;
    }
    record.setSpeed(probe.rttMs);
    record.m_speed = probe.averageMs;
    if (record.m_networkLevel != probe.level) {
        record.m_networkLevel = probe.level;
        record.m_levelSpeed = probe.averageMs;
    }
    if (probe.openMisses > 0) {
        record.m_pingMissCount = static_cast<uint32_t>(probe.openMisses);
    }
}

void LogReplay::joinIfKnown(const ChoiceRecord& choice) {
    constexpr size_t kHistory = 10;
    const bool isBeginning =
            choice.hasLink && choice.window == ChoiceRecord::Window::kOver && !choice.switched;
    const bool isKnown = std::all_of(
            choice.candidates.begin(), choice.candidates.end(),
            [this](const ChoiceRecord::Candidate& candidate) {
                const InterfaceRtt* const record = m_engine.find(candidate.link);
                return record != nullptr && record->m_longpreviousSpeed.size() >= kHistory;
            });
    if (!isBeginning || !isKnown) {
        return;
    }
    moveClock(choice);
    m_engine.setWindowStart(m_windowStart);
    m_engine.setChosen(choice.selected);
    m_isRunning = true;
    m_mayJoin = false;
}

void LogReplay::startIfDue(const ProbeRecord& probe) {
    constexpr size_t kMostLinks = 64;
    const auto thread = m_threads.find(probe.link);
    if (m_isStarting && (thread == m_threads.end() || thread->second != probe.tid)) {
        start();
    }
    if (m_threads.size() < kMostLinks) {
        m_threads[probe.link] = probe.tid;
    }
}

void LogReplay::startIfDue(const ChoiceRecord& choice) {
    const bool isFresh = std::all_of(choice.candidates.begin(), choice.candidates.end(),
                                     [](const ChoiceRecord::Candidate& candidate) {
                                         return candidate.level == InterfaceRtt::kNotRated;
                                     });
    if (m_isStarting && isFresh) {
        start();
    }
}

// A link that is just being removed is gone from the choice before the log says so.
void LogReplay::matchLinks(const ChoiceRecord& choice) {
    for (const std::string& link : m_engine.links()) {
        const bool isThere = std::any_of(choice.candidates.begin(), choice.candidates.end(),
                                         [&link](const ChoiceRecord::Candidate& candidate) {
                                             return candidate.link == link;
                                         });
        if (!isThere) {
            m_engine.remove(link);
        }
    }
    for (const ChoiceRecord::Candidate& candidate : choice.candidates) {
        if (m_engine.find(candidate.link) == nullptr) {
            ensure(candidate.link);
            m_engine.add(candidate.link);
        }
    }
}

}  // namespace lnkd
