// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "logfile/log_clock.h"
#include "logfile/log_event.h"

namespace lnkd {

// One choice of link selection, from the dozen lines that the daemon logs about it.
struct ChoiceRecord {
    enum class Window { kOver, kOpen, kRefused };
    struct Candidate {
        std::string link;
        int32_t level;
    };

    LogTime at;     // of the look at the hysteresis window, or of the only line when there is none
    LogTime endAt;  // of the last line
    bool hasLink = true;  // false: there was none to choose, and nothing below means anything
    std::vector<Candidate> candidates;
    std::string best;
    Window window = Window::kOver;
    int32_t elapsedMs = 0;  // of the window
    int32_t windowMs = 0;
    std::string previous;  // the link before; empty: none, or not known when it was refused
    std::string selected;  // the link after; empty when it was refused
    bool switched = false;
    int32_t switchesBefore = 0;  // in the window
    std::vector<std::string> uids;
    int64_t sockets = 0;  // destroyed

    int32_t levelOf(const std::string& link) const;  // 0 for one that is no candidate
};

// Puts the lines of one daemon's choices together; they come from one thread.
class ChoiceReader {
  public:
    // Takes one event, before who reads probes does. True when a choice has ended, which is then in
    // record(): one that was refused ends with what follows it, because a refusal does not count
    // when no link was chosen before.
    bool take(const LogTime& time, const LogEvent& event);
    // Ends what the end of the log leaves; true as above.
    bool flush();
    const ChoiceRecord& record() const { return m_ended; }
    // Choices whose lines are not all there.
    int64_t incomplete() const { return m_incomplete; }

  private:
    enum class State { kIdle, kCandidates, kWindow, kSelected, kSwitching };

    bool add(const LogTime& time, const LogEvent& event);
    bool begin(const LogTime& time, const LogEvent& event);
    void decide(const LogTime& time, const LogEvent& event);
    bool expect(State state);
    bool end();

    State m_state = State::kIdle;
    ChoiceRecord m_record;  // in the making
    ChoiceRecord m_ended;
    int64_t m_incomplete = 0;
};

}  // namespace lnkd
