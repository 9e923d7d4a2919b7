// SPDX-License-Identifier: Apache-2.0
#include "explain/story_reader.h"

#include <algorithm>
#include <utility>

#include "control/message.h"
#include "core/text_values.h"

namespace lnkd {

void StoryReader::take(std::string_view text) {
    ++m_story.lines;
    LogLine line;
    if (!parseLogLine(text, &line)) {
        ++m_story.foreignLines;
        return;
    }
    if (isDaemonLine(line)) {
        takeEvent(line, parseLogEvent(line));
    }
}

void StoryReader::beginRun(bool isStart) {
    if (m_run != nullptr && !m_run->hasEnded) {
        addMoment(&m_story, {MomentKind::kDaemonGone, m_now});
    }
    endRun();
    m_run = std::make_unique<Run>(&m_story);
    m_run->isSettingUp = isStart;
    ++m_story.runs;
    if (!isStart && m_joins++ == 0) {
        m_firstJoin = m_now;
    }
}

void StoryReader::endRun() {
    if (m_run == nullptr) {
        return;
    }
    if (m_run->choices.flush()) {
        m_run->selection.take(m_run->choices.record());
    }
    if (m_run->shares.flush()) {
        takeShares(m_run->shares.record());
    }
    m_run->selection.stop(m_now);
    m_story.incompleteChoices += m_run->choices.incomplete();
    m_run.reset();
}

// Time of which the log does not tell.
void StoryReader::noteHoles(int32_t setBacks) {
    constexpr int64_t kLongestSilenceMs = 120000;  // an idle daemon tells its shares in six seconds
    if (setBacks > m_setBacks) {
        m_setBacks = setBacks;
        addMoment(&m_story, {MomentKind::kSetBack, m_now});
    }
    const int64_t silence = m_now.ms - std::exchange(m_lastDaemonMs, m_now.ms);
    if (m_run != nullptr && !m_run->hasEnded && silence > kLongestSilenceMs) {
        Moment moment{MomentKind::kGap, m_now};
        moment.lastedMs = silence;
        addMoment(&m_story, std::move(moment));
    }
}

void StoryReader::takeEvent(const LogLine& line, const LogEvent& event) {
    ++m_story.daemonLines;
    m_now = m_clock.timeOf(line);
    if (m_story.daemonLines == 1) {
        m_story.begin = m_now;
    }
    m_story.end = m_now;
    if (event.kind == LogEventKind::kSecondDaemon) {
        m_failures.add(m_now, "another daemon was started, and ended at once");
        return;
    }
    switch (m_runs.take(line, event)) {
        case DaemonRuns::Line::kStarts:
            beginRun(true);
            break;
        case DaemonRuns::Line::kJoins:
            beginRun(false);
            break;
        case DaemonRuns::Line::kOfRun:
            break;
        case DaemonRuns::Line::kOther:
            return;
    }
    noteHoles(m_clock.setBacks());
    if (m_run->choices.take(m_now, event)) {
        m_run->selection.take(m_run->choices.record());
    }
    if (m_run->probes.take(m_now, line.tid, event)) {
        m_run->selection.take(m_run->probes.record());
    }
    if (m_run->shares.take(m_now, line.tid, event)) {
        takeShares(m_run->shares.record());
    }
    takeLife(event);
}

void StoryReader::takeLife(const LogEvent& event) {
    Moment moment{MomentKind::kDaemonStart, m_now};
    moment.to.name = event.link;
    switch (event.kind) {
        case LogEventKind::kStart:
            addMoment(&m_story, std::move(moment));
            break;
        case LogEventKind::kTeardown:
            m_run->isTakingDown = true;
            m_run->hasEnded = true;
            moment.kind = MomentKind::kDaemonEnd;
            m_run->selection.stop(m_now);
            addMoment(&m_story, std::move(moment));
            break;
        case LogEventKind::kMessage:
            m_run->isSettingUp = false;
            takeMessage(event);
            break;
        case LogEventKind::kTableAdded:
            moment.kind = MomentKind::kLinkAdded;
            addMoment(&m_story, std::move(moment));
            break;
        case LogEventKind::kTableRemoved:
            moment.kind = MomentKind::kLinkRemoved;
            addMoment(&m_story, std::move(moment));
            break;
        case LogEventKind::kSignal:
            m_run->selection.takeSignal(moment.to.name, event.number);
            break;
        case LogEventKind::kYardstick:
            m_run->selection.takeYardstick(moment.to.name, event.level);
            break;
        case LogEventKind::kReplayed:
            m_story.replayed = event.text;
            break;
        case LogEventKind::kCommand:
            m_run->command = event.text;
            break;
        case LogEventKind::kReply:
        case LogEventKind::kFailure:
            takeFailure(event);
            break;
        default:
            break;
    }
}

void StoryReader::takeMessage(const LogEvent& event) {
    const std::string text(event.text);
    switch (event.number) {
        case kStartSlsServer:
            if (!std::exchange(m_run->gameRuns, true)) {
                m_run->selection.begin(MomentKind::kGameStart, m_now, text);
            }
            break;
        case kStopSlsServer:
            if (std::exchange(m_run->gameRuns, false)) {
                m_run->selection.end(MomentKind::kGameEnd, m_now);
            }
            break;
        case kSetVoipStatus: {
            const bool starts = parseInt(text.c_str()) != 0;
            const bool ran = std::exchange(m_run->callRuns, starts);
            if (starts && !ran) {
                m_run->selection.begin(MomentKind::kCallStart, m_now, text);
            } else if (!starts && ran) {
                m_run->selection.end(MomentKind::kCallEnd, m_now);
            }
            break;
        }
        default:
            break;
    }
}

void StoryReader::takeFailure(const LogEvent& event) {
    // Chains are made over what may be there, and rules and chains removed that may not be: of a
    // link that was not chosen or is for everyone, or after a call whose end ended a game as well.
    const bool isReply = event.kind == LogEventKind::kReply;
    const auto isCommand = [this](const char* part) {
        return m_run->command.find(part) != std::string::npos;
    };
    const bool isIdle = isCommand(" -D ") || isCommand(" -N ") || isCommand(" -X ") ||
                        isCommand(" -F zelk_sls_") || isCommand(" -F zelk_fw_");
    if (m_run->isTakingDown || (isReply && (m_run->isSettingUp || isIdle))) {
        ++m_story.expectedFailures;
        return;
    }
    const std::string text(
            event.text.substr(std::min(event.text.find_first_not_of(' '), event.text.size())));
    const std::string answer = isReply ? text + " (the answer to: " + m_run->command + ")" : text;
    m_failures.add(m_now, shortened(answer, kLongestFailure));
}

void StoryReader::takeShares(const ShareRecord& shares) {
    for (const ShareRecord::Link& link : shares.links) {
        LinkCurves* const curves = curvesOf(&m_story, link.name);
        if (curves == nullptr) {
            continue;
        }
        curves->share.add(shares.at.ms, static_cast<double>(link.share));
        if (shares.measured) {
            curves->rate.add(shares.at.ms, link.rate);
        }
    }
    m_story.passes += shares.measured ? 1 : 0;
    if (shares.rebuilt) {
        ++m_story.rebuilds;
        m_story.rebuildsWithoutRates += shares.measured ? 0 : 1;
        Moment moment{MomentKind::kRebuild, shares.at};
        moment.shares = shares.links;
        moment.hasRates = shares.measured;
        addMoment(&m_story, std::move(moment));
    }
}

Story StoryReader::finish() {
    endRun();
    m_story.failures = m_failures.sorted();
    // A refusal is told once it has ended, the shares once their rules are built.
    std::stable_sort(m_story.moments.begin(), m_story.moments.end(),
                     [](const Moment& a, const Moment& b) { return a.at.ms < b.at.ms; });
    if (m_joins > 0) {
        m_story.missing.push_back(
                (m_joins == 1 ? "the beginning of a run of the daemon, from "
                              : "the beginnings of " + std::to_string(m_joins) +
                                        " runs of the daemon, the first from ") +
                m_firstJoin.stamp() +
                ": its links, and what had been chosen, are known once a line tells them");
    }
    if (m_story.incompleteChoices > 0) {
        m_story.missing.push_back("lines of " + std::to_string(m_story.incompleteChoices) +
                                  " choices, which are not counted");
    }
    return std::move(m_story);
}

bool readStory(LogInput& input, Story* story) {
    StoryReader reader;
    std::string_view text;
    while (input.next(&text)) {
        reader.take(text);
    }
    *story = reader.finish();
    if (input.cutLines() > 0) {
        story->missing.push_back("the ends of " + std::to_string(input.cutLines()) +
                                 " lines that are longer than any of the daemon's");
    }
    if (!input.error().empty()) {
        story->missing.push_back("what follows the last line: " + input.error());
    }
    return story->daemonLines > 0;
}

bool readStory(const std::string& path, Story* story, std::string* error) {
    LogInput input;
    if (!input.open(path)) {
        *error = input.error();
        return false;
    }
    if (!readStory(input, story)) {
        *error = "no line of the daemon in it (\"logcat -v threadtime\" gives a log with all that "
                 "is needed)";
        return false;
    }
    return true;
}

}  // namespace lnkd
