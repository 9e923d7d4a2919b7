// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "explain/story.h"
#include "logfile/choice_record.h"
#include "logfile/probe_record.h"

namespace lnkd {

// Tells of link selection: what a switch was made for, what a refusal cost, and for how long there
// was no good link. One run of the daemon.
class SelectionTeller {
  public:
    // A longer time without a choice is not counted as anything: the log has a hole there.
    static constexpr int64_t kLongestStepMs = 60000;

    explicit SelectionTeller(Story* story) : m_story(story) {}

    void begin(MomentKind kind, const LogTime& at, const std::string& uids);
    void end(MomentKind kind, const LogTime& at);
    // The daemon ends, or the log.
    void stop(const LogTime& at);

    void take(const ProbeRecord& probe);
    void take(const ChoiceRecord& choice);
    void takeSignal(const std::string& link, int32_t dbm);
    void takeYardstick(const std::string& link, int32_t level);

  private:
    void count(const LogTime& at);
    void endNotGood(const LogTime& at);
    void takeRefusal(const ChoiceRecord& choice);
    void endRefusal(const LogTime& at, Ending ending);
    void takeSwitch(const ChoiceRecord& choice);
    void remember(const ChoiceRecord& choice);
    LinkView view(const std::string& link, int32_t level) const;

    Story* m_story;
    enum class State { kUnknown, kRuns, kEnded };
    State m_state = State::kUnknown;  // what the log has told of games and calls
    bool m_hasChosen = false;         // a first link
    std::string m_current;            // empty: none, or not known
    std::map<std::string, LinkView> m_links;
    std::map<std::string, int32_t> m_yards;
    // Since the last choice.
    bool m_isCounting = false;
    int64_t m_lastMs = 0;
    int32_t m_level = 0;  // of the chosen link, and of the best one
    int32_t m_bestLevel = 0;
    bool m_isNotGood = false;
    LogTime m_notGoodAt;
    // The refusal that goes on.
    bool m_isRefusing = false;
    Moment m_refusal = {MomentKind::kRefusal, {}};
    int64_t m_waitedMs = 0;  // of the refusal that has just ended with a switch
};

}  // namespace lnkd
