// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "explain/selection_teller.h"
#include "explain/story.h"
#include "logfile/choice_record.h"
#include "logfile/daemon_runs.h"
#include "logfile/log_event.h"
#include "logfile/log_input.h"
#include "logfile/probe_record.h"
#include "logfile/share_record.h"

namespace lnkd {

// Makes a story of a log, line by line.
class StoryReader {
  public:
    // Takes any line.
    void take(std::string_view text);
    // The story; no more lines can be taken.
    Story finish();

  private:
    // What is told of one run of the daemon.
    struct Run {
        explicit Run(Story* story) : selection(story) {}
        ChoiceReader choices;
        ProbeReader probes;
        ShareReader shares;
        SelectionTeller selection;
        std::string command;       // the last one, which a reply is of
        bool isSettingUp = false;  // its rules; what fails then was not there, and need not be
        bool isTakingDown = false;
        bool hasEnded = false;
        bool gameRuns = false;
        bool callRuns = false;
    };

    void beginRun(bool isStart);
    void endRun();
    void takeEvent(const LogLine& line, const LogEvent& event);
    void takeMessage(const LogEvent& event);
    void takeLife(const LogEvent& event);
    void takeFailure(const LogEvent& event);
    void takeShares(const ShareRecord& shares);
    void noteHoles(int32_t setBacks);

    Story m_story;
    FailureTable m_failures;
    LogClock m_clock;
    LogTime m_now;
    int64_t m_lastDaemonMs = 0;
    std::unique_ptr<Run> m_run;
    DaemonRuns m_runs;
    int32_t m_setBacks = 0;
    int64_t m_joins = 0;  // runs whose beginning the log does not have
    LogTime m_firstJoin;
};

// Reads a whole log, by its path or "-". False when it cannot be read; with a warning, and what
// there was, when it breaks off.
bool readStory(const std::string& path, Story* story, std::string* error);
bool readStory(LogInput& input, Story* story);

}  // namespace lnkd
