// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "logfile/choice_record.h"
#include "logfile/daemon_runs.h"
#include "logfile/log_clock.h"
#include "logfile/log_event.h"
#include "logfile/probe_record.h"
#include "logfile/share_record.h"
#include "replay/engine.h"
#include "replay/yardstick.h"

namespace lnkd {

// Feeds what a log recorded through the daemon's own averaging, rating, choice and shares, which
// log what they make of it. With no tunable changed that must be what the log says.
class LogReplay {
  public:
    // `changed`: the tunables that are not to be what the log says they were.
    explicit LogReplay(std::set<std::string> changed);

    // Takes one line, with its meaning.
    void take(std::string_view text, const LogLine& line, const LogEvent& event);
    // The end of the log. Logs what came of it.
    void finish();

  private:
    void beginRun();
    void takeMessage(const LogEvent& event);
    void takeLinks(const LogEvent& event);
    bool takeOther(const LogEvent& event);
    void takeProbe(const ProbeRecord& probe);
    void takeChoice(const ChoiceRecord& choice);
    void takeShares(const ShareRecord& shares);

    // The records are made at a moment that the log does not tell: what comes shows that it is
    // past.
    void startIfDue(const ProbeRecord& probe);
    void startIfDue(const ChoiceRecord& choice);
    void start();
    // A game that began before the log is joined once all that its choices go by is known: ten
    // results of each link, and a window that begins.
    void join(const ProbeRecord& probe, InterfaceRtt& record);
    void joinIfKnown(const ChoiceRecord& choice);
    // Makes a link known that a log without a beginning speaks of.
    static void ensure(const std::string& link);
    // Its record while a game or call runs, or may run; null when there can be none.
    InterfaceRtt* recordOf(const std::string& link);
    void matchLinks(const ChoiceRecord& choice);
    // Sets the clock to that of the choice.
    void moveClock(const ChoiceRecord& choice);
    bool isChanged(const char* key) const { return m_changed.count(key) != 0; }
    void compare(const LogTime& at, const std::string& log, const std::string& own);
    // Takes what the replayed daemon logs.
    void hear(int32_t tid, const LogEvent& event);

    const std::set<std::string> m_changed;
    Engine m_engine;
    Yardstick m_yardstick;
    LogClock m_clock;
    LogTime m_now;

    // What the log says, and what the replay does.
    ChoiceReader m_choices;
    ProbeReader m_probes;
    ShareReader m_shares;
    ChoiceReader m_ownChoices;
    ProbeReader m_ownProbes;
    ShareReader m_ownShares;
    bool m_ownChoiceEnded = false;
    bool m_ownProbeEnded = false;
    bool m_ownSharesEnded = false;

    DaemonRuns m_runs;
    bool m_isStarting = false;  // a start was asked for and its records are not made yet
    bool m_isRunning = false;   // records are there
    bool m_mayJoin = false;     // a game may run that began before the log
    bool m_gameRuns = false;
    bool m_callRuns = false;
    std::map<std::string, int32_t> m_threads;  // that probe a link
    std::map<std::string, int32_t> m_yards;    // levels by the yardstick
    bool m_windowKnown = false;
    timeval m_windowStart = {};  // as the log has it
    int64_t m_switchMs = 20;     // how long a switch takes
    bool m_sharesForgotten = false;
    bool m_rulesKnown = false;                // whether there were any before the log
    std::map<std::string, float> m_ownShare;  // after the last pass

    int64_t m_choiceCount = 0;
    int64_t m_probeCount = 0;
    int64_t m_shareCount = 0;
    int64_t m_passedOver = 0;  // choices before the first start that the log has
    int64_t m_differences = 0;
    std::string m_firstDifference;
};

}  // namespace lnkd
