// SPDX-License-Identifier: Apache-2.0
#include "replay/log_replay.h"

#include <algorithm>
#include <utility>

#include "aggregation/sla_stats_impl.h"
#include "control/message.h"
#include "core/parameters.h"
#include "core/text_values.h"
#include "replay/clock.h"
#include "replay/differences.h"
#include "replay/sink.h"
#include "replay/stand_ins.h"

#define LNKD_LOG_TAG "DVX-Lnkd-Replay"
#include "core/log.h"

namespace lnkd {

LogReplay::LogReplay(std::set<std::string> changed) : m_changed(std::move(changed)) {
    Parameters* const parameters = Parameters::instance();
    // The rates of a log have been through these.
    parameters->best_est_cache_size = 0;
    m_engine.clear();
    Sink::instance().setListener([this](int32_t tid, const LogEvent& event) { hear(tid, event); });
}

void LogReplay::hear(int32_t tid, const LogEvent& event) {
    m_ownChoiceEnded = m_ownChoices.take(m_now, event) || m_ownChoiceEnded;
    m_ownProbeEnded = m_ownProbes.take(m_now, tid, event) || m_ownProbeEnded;
    m_ownSharesEnded = m_ownShares.take(m_now, tid, event) || m_ownSharesEnded;
}

void LogReplay::take(std::string_view text, const LogLine& line, const LogEvent& event) {
    const DaemonRuns::Line kind = m_runs.take(line, event);
    if (kind == DaemonRuns::Line::kOther) {
        return;
    }
    if (kind != DaemonRuns::Line::kOfRun) {
        beginRun();
        m_mayJoin = kind == DaemonRuns::Line::kJoins;
        m_rulesKnown = kind == DaemonRuns::Line::kStarts;
    }
    m_now = m_clock.timeOf(line);
    Sink::instance().moveTo(line);
    setReplayedTime(middleOf(m_now.wallMs));
    if (m_choices.take(m_now, event)) {
        takeChoice(m_choices.record());
        Sink::instance().moveTo(line);
    }
    if (m_shares.take(m_now, line.tid, event)) {
        takeShares(m_shares.record());
        Sink::instance().moveTo(line);
    }
    if (m_probes.take(m_now, line.tid, event)) {
        takeProbe(m_probes.record());
    }
    if (takeOther(event)) {
        Sink::instance().copy(text);
    }
}

void LogReplay::beginRun() {
    m_engine.clear();
    m_yardstick.clear();
    m_choices = {};
    m_probes = {};
    m_shares = {};
    m_threads.clear();
    m_yards.clear();
    m_isStarting = m_isRunning = m_gameRuns = m_callRuns = m_windowKnown = false;
    m_sharesForgotten = false;
}

// What is not made anew by the replay, and so belongs to its log: true.
bool LogReplay::takeOther(const LogEvent& event) {
    switch (event.kind) {
        case LogEventKind::kMessage:
            takeMessage(event);
            return true;
        case LogEventKind::kTableAdded:
        case LogEventKind::kTableRemoved:
        case LogEventKind::kChoiceAdded:
        case LogEventKind::kChoiceRemoved:
            takeLinks(event);
            return true;
        case LogEventKind::kStatsRestart:
            m_sharesForgotten = true;
            return true;
        case LogEventKind::kSignal:
        case LogEventKind::kStart:
        case LogEventKind::kTeardown:
        case LogEventKind::kExit:
            return true;
        default:
            return false;
    }
}

void LogReplay::takeMessage(const LogEvent& event) {
    const std::string text(event.text);
    switch (event.number) {
        case kStartSlsServer:
            m_mayJoin = false;
            m_isStarting = m_isStarting || !m_gameRuns;
            m_gameRuns = true;
            break;
        case kSetVoipStatus:
            m_mayJoin = false;
            m_isStarting = m_isStarting || (!m_callRuns && parseInt(text.c_str()) != 0);
            m_callRuns = parseInt(text.c_str()) != 0;
            break;
        case kStopSlsServer:
            m_mayJoin = false;
            m_gameRuns = false;
            break;
        case kUpdateInterfaceMode:
            Sink::instance().mute(true);
            Parameters::instance()->UpdateInterfaceMode(text.c_str());
            Sink::instance().mute(false);
            break;
        default:
            break;
    }
}

void LogReplay::takeProbe(const ProbeRecord& probe) {
    Sink& sink = Sink::instance();
    sink.mute(true);
    startIfDue(probe);
    InterfaceRtt* const record = recordOf(probe.link);
    if (record == nullptr || !m_isRunning) {
        if (record != nullptr) {
            join(probe, *record);
        }
        sink.mute(false);
        return;
    }
    Parameters* const parameters = Parameters::instance();
    if (!isChanged("alpha_percent") && probe.alpha >= 0) {
        parameters->alpha_percent = probe.alpha;
    }
    const int32_t level = m_yardstick.take(probe.link, probe.rttMs);
    sink.mute(false);
    m_ownProbeEnded = false;
    record->setSpeed(probe.rttMs);
    ++m_probeCount;
    if (m_changed.empty()) {
        const std::string own = m_ownProbeEnded ? textOf(m_ownProbes.record()) : "nothing";
        compare(probe.at, textOf(probe), own);
    }
    const auto known = m_yards.find(probe.link);
    if (known == m_yards.end() || known->second != level) {
        m_yards[probe.link] = level;
        LNKD_LOGI("yardstick of %s level %d", probe.link.c_str(), level);
    }
}

void LogReplay::moveClock(const ChoiceRecord& choice) {
    timeval now = middleOf(choice.at.wallMs);
    if (!m_windowKnown || !fitTime(m_windowStart, choice.at.wallMs, choice.elapsedMs, &now)) {
        // As far back as the log says; what is left of a millisecond makes no difference to it.
        now = middleOf(choice.at.wallMs);
        m_windowStart = now;
        m_windowStart.tv_sec -= choice.elapsedMs / 1000;
        m_windowStart.tv_usec -= choice.elapsedMs % 1000 * 1000;
        if (m_windowStart.tv_usec < 0) {
            m_windowStart.tv_usec += 1000000;
            --m_windowStart.tv_sec;
        }
        // The replay's own, if it has one, is another's tunables' work.
        if (!m_windowKnown || m_changed.empty()) {
            m_engine.setWindowStart(m_windowStart);
        }
        m_windowKnown = true;
    }
    timeval& end = standIns().switchEnd;
    if (choice.switched) {
        m_switchMs = choice.endAt.wallMs - choice.at.wallMs;
        end = middleOf(choice.endAt.wallMs);
    } else {
        end = middleOf(choice.at.wallMs + m_switchMs);
    }
    if (choice.window == ChoiceRecord::Window::kOver) {
        m_windowStart = now;
    }
    if (choice.switched) {
        m_windowStart = end;
    }
    setReplayedTime(now);
}

void LogReplay::takeChoice(const ChoiceRecord& choice) {
    Sink& sink = Sink::instance();
    sink.mute(true);
    startIfDue(choice);
    if (!m_isRunning) {
        m_passedOver += choice.hasLink ? 1 : 0;
        if (m_mayJoin) {
            joinIfKnown(choice);
        }
        sink.mute(false);
        return;
    }
    matchLinks(choice);
    sink.mute(false);
    sink.moveTo(choice.at.date, choice.at.ofDayMs);
    if (choice.hasLink) {
        if (!isChanged("t_hyst_s")) {
            Parameters::instance()->t_hyst_s = choice.windowMs / 1000;
        }
        moveClock(choice);
    }
    m_ownChoiceEnded = false;
    m_engine.choose();
    m_ownChoiceEnded = m_ownChoices.flush() || m_ownChoiceEnded;
    ++m_choiceCount;
    if (m_changed.empty()) {
        const std::string own = m_ownChoiceEnded ? textOf(m_ownChoices.record()) : "nothing";
        compare(choice.at, textOf(choice), own);
    }
}

void LogReplay::takeShares(const ShareRecord& shares) {
    if (!shares.measured) {
        m_sharesForgotten = false;  // the rules were built, of rates that the log does not tell
        m_rulesKnown = true;
        return;
    }
    SlaStatsImpl* const engine = SlaStatsImpl::instance();
    Sink& sink = Sink::instance();
    sink.mute(true);
    for (const auto& [name, measured] : standIns().measured) {
        engine->updateSlaInterfacemap(name.c_str(), false);
    }
    standIns().measured.clear();
    if (std::exchange(m_sharesForgotten, false)) {
        engine->forgetShares();
    }
    for (const ShareRecord::Link& link : shares.links) {
        ensure(link.name);
        StandIns::Measured& measured = standIns().measured[link.name];
        measured.rate = link.rate;
        // Those before are the log's as long as nothing changes them.
        measured.oldShare = isChanged("wifi_threshold") ? m_ownShare[link.name] : link.oldShare;
        engine->updateSlaInterfacemap(link.name.c_str(), true);
    }
    sink.mute(false);
    sink.moveTo(shares.at.date, shares.at.ofDayMs);
    engine->evalAndSetSLAInterfaceRatio();
    const ShareRecord own = m_ownShares.flush() ? m_ownShares.record() : ShareRecord{};
    ++m_shareCount;
    m_ownShare.clear();
    for (const ShareRecord::Link& link : own.links) {
        m_ownShare[link.name] = link.share;
    }
    const bool isCertain = shares.isCertain && std::exchange(m_rulesKnown, true);
    if (m_changed.empty()) {
        compare(shares.at, textOf(shares, isCertain), textOf(own, isCertain));
    }
}

void LogReplay::compare(const LogTime& at, const std::string& log, const std::string& own) {
    if (log == own) {
        return;
    }
    ++m_differences;
    if (m_firstDifference.empty()) {
        m_firstDifference = at.stamp() + ", log: " + log + "; replay: " + own;
    }
}

void LogReplay::finish() {
    if (m_choices.flush()) {
        takeChoice(m_choices.record());
    }
    if (m_shares.flush()) {
        takeShares(m_shares.record());
    }
    LNKD_LOGI(
            "replayed: %lld choices, %lld probes, %lld passes, %lld passed over, %lld "
            "different%s%s",
            static_cast<long long>(m_choiceCount), static_cast<long long>(m_probeCount),
            static_cast<long long>(m_shareCount), static_cast<long long>(m_passedOver),
            static_cast<long long>(m_differences), m_firstDifference.empty() ? "" : ": ",
            m_firstDifference.c_str());
}

}  // namespace lnkd
