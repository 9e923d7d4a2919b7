// SPDX-License-Identifier: Apache-2.0
#include "explain/selection_teller.h"

#include <algorithm>
#include <utility>

#include "output/text.h"

namespace lnkd {

void SelectionTeller::begin(MomentKind kind, const LogTime& at, const std::string& uids) {
    Moment moment{kind, at};
    moment.text = uids;
    addMoment(m_story, std::move(moment));
    ++m_story->selecting.count;
    m_state = State::kRuns;
    m_hasChosen = false;
}

void SelectionTeller::end(MomentKind kind, const LogTime& at) {
    stop(at);
    addMoment(m_story, {kind, at});
    m_state = State::kEnded;
}

void SelectionTeller::stop(const LogTime& at) {
    count(at);
    endNotGood(at);
    endRefusal(at, Ending::kOther);
    m_isCounting = false;
    m_current.clear();
    m_hasChosen = false;
    m_links.clear();
    m_yards.clear();
}

void SelectionTeller::take(const ProbeRecord& probe) {
    LinkCurves* const curves = curvesOf(m_story, probe.link);
    if (curves == nullptr) {
        return;
    }
    LinkView& link = m_links[probe.link];
    if (probe.rttMs >= 0) {
        curves->rtt.add(probe.at.ms, probe.rttMs);
    } else {
        curves->misses.add(probe.at.ms, 1);
    }
    if (probe.rated) {
        link.level = probe.level;
        link.averageMs = probe.averageMs;
        if (probe.averageMs >= 0) {
            curves->average.add(probe.at.ms, probe.averageMs);
        }
        curves->level.add(probe.at.ms, probe.level);
    }
    m_story->alpha = probe.alpha >= 0 ? probe.alpha : m_story->alpha;
}

void SelectionTeller::takeSignal(const std::string& link, int32_t dbm) {
    if (curvesOf(m_story, link) != nullptr) {
        m_links[link].signalDbm = dbm;
    }
}

void SelectionTeller::takeYardstick(const std::string& link, int32_t level) {
    if (curvesOf(m_story, link) != nullptr) {
        m_yards[link] = level;
    }
}

// The time since the last choice, during which all was as that left it.
void SelectionTeller::count(const LogTime& at) {
    const int64_t step = at.ms - m_lastMs;
    if (m_isCounting && step <= kLongestStepMs) {
        m_story->selecting.ms += step;
        m_story->worseMs += m_level < m_bestLevel ? step : 0;
    } else {
        m_isNotGood = false;
    }
}

void SelectionTeller::endNotGood(const LogTime& at) {
    if (!std::exchange(m_isNotGood, false)) {
        return;
    }
    const int64_t lasted = at.ms - m_notGoodAt.ms;
    m_story->notGood.add(lasted);
    if (lasted > m_story->longestNotGoodMs) {
        m_story->longestNotGoodMs = lasted;
        m_story->longestNotGoodAt = m_notGoodAt;
    }
}

LinkView SelectionTeller::view(const std::string& link, int32_t level) const {
    const auto known = m_links.find(link);
    LinkView seen = known != m_links.end() ? known->second : LinkView{};
    seen.name = link;
    seen.level = level;
    return seen;
}

void SelectionTeller::endRefusal(const LogTime& at, Ending ending) {
    m_waitedMs = 0;
    if (!std::exchange(m_isRefusing, false)) {
        return;
    }
    m_refusal.ending = ending;
    m_refusal.lastedMs = at.ms - m_refusal.at.ms;
    switch (ending) {
        case Ending::kSwitched:
            m_story->delays.add(m_refusal.lastedMs);
            m_waitedMs = m_refusal.lastedMs;
            break;
        case Ending::kRecovered:
            m_story->savings.add(m_refusal.lastedMs);
            break;
        default:
            m_story->otherRefusals.add(m_refusal.lastedMs);
            break;
    }
    addMoment(m_story, m_refusal);
}

void SelectionTeller::takeRefusal(const ChoiceRecord& choice) {
    // The window is asked also when there is nothing to switch to.
    if (m_current.empty() || choice.best == m_current) {
        endRefusal(choice.at, Ending::kRecovered);
        return;
    }
    ++m_story->refusedChoices;
    if (m_isRefusing && m_refusal.to.name != choice.best) {
        endRefusal(choice.at, Ending::kOther);
    }
    if (!m_isRefusing) {
        m_isRefusing = true;
        m_refusal = {MomentKind::kRefusal, choice.at};
        m_refusal.from = view(m_current, choice.levelOf(m_current));
        m_refusal.to = view(choice.best, choice.levelOf(choice.best));
        m_refusal.waitMs = int64_t{choice.windowMs} - choice.elapsedMs;
    }
    ++m_refusal.count;
}

void SelectionTeller::takeSwitch(const ChoiceRecord& choice) {
    const bool isWanted = m_isRefusing && choice.selected == m_refusal.to.name;
    endRefusal(choice.at, isWanted ? Ending::kSwitched : Ending::kOther);
    Moment moment{MomentKind::kSwitch, choice.at};
    moment.from = view(choice.previous, choice.levelOf(choice.previous));
    moment.to = view(choice.selected, choice.levelOf(choice.selected));
    if (choice.previous.empty()) {
        moment.why = m_hasChosen ? Why::kGone : Why::kFirst;
    } else if (moment.from.level == kFailedLevel) {
        moment.why = Why::kFailed;
    } else {
        moment.why = moment.to.level > moment.from.level ? Why::kBetter : Why::kTie;
    }
    moment.text = joined(choice.uids, ",");
    moment.sockets = choice.sockets;
    moment.lastedMs = m_waitedMs;
    m_story->switches += moment.why == Why::kFirst ? 0 : 1;
    m_story->sockets += choice.sockets;
    m_hasChosen = true;
    addMoment(m_story, std::move(moment));
}

// What holds until the next choice.
void SelectionTeller::remember(const ChoiceRecord& choice) {
    const auto levelOf = [&](const std::string& link) {
        const auto yard = m_yards.find(link);
        return yard != m_yards.end() ? yard->second : choice.levelOf(link);
    };
    m_level = levelOf(m_current);
    m_bestLevel = m_level;
    for (const ChoiceRecord::Candidate& candidate : choice.candidates) {
        m_bestLevel = std::max(m_bestLevel, levelOf(candidate.link));
    }
    m_isCounting = true;
    m_lastMs = choice.at.ms;
    const bool isNotGood = m_level > 0 ? m_level < kGoodLevel : m_current.empty();
    if (isNotGood && !m_isNotGood) {
        m_isNotGood = true;
        m_notGoodAt = choice.at;
    } else if (!isNotGood) {
        endNotGood(choice.at);
    }
}

void SelectionTeller::take(const ChoiceRecord& choice) {
    if (m_state == State::kEnded) {
        // Until its links are released it goes on, to nobody's use.
        if (choice.switched) {
            takeSwitch(choice);
        }
        return;
    }
    if (!choice.hasLink) {
        // Its game is about to end, or all its links have gone.
        count(choice.at);
        endRefusal(choice.at, Ending::kOther);
        m_current.clear();
        m_isCounting = false;
        return;
    }
    if (m_state == State::kUnknown) {
        m_state = State::kRuns;
        ++m_story->selecting.count;
        m_hasChosen = true;
        addMoment(m_story, {MomentKind::kRunning, choice.at});
    }
    ++m_story->choices;
    m_story->windowMs = choice.windowMs;
    count(choice.at);
    if (choice.selected.empty()) {
        takeRefusal(choice);
    } else if (choice.switched) {
        takeSwitch(choice);
    } else {
        endRefusal(choice.at, Ending::kRecovered);
    }
    m_current = choice.selected.empty() ? m_current : choice.selected;
    remember(choice);
}

}  // namespace lnkd
