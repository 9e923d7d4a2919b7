// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <utility>
#include <vector>

#include "explain/words.h"
#include "output/text.h"

namespace lnkd {

namespace {

constexpr size_t kMostLines = 60;  // of moments, unless all are wanted
constexpr size_t kMostFailures = 12;

class Screen {
  public:
    Screen(const Story& story, bool all, const Terminal& terminal)
        : m_story(story), m_all(all), m_terminal(terminal) {}

    std::string text(const std::string& name) {
        heading(name);
        summary();
        aggregation();
        moments();
        failures();
        return std::move(m_text);
    }

  private:
    void heading(const std::string& name);
    void summary();
    void aggregation();
    void moments();
    void failures();
    void row(const std::string& label, const std::string& words, Tone tone = Tone::kPlain);
    void title(const std::string& words);
    std::vector<std::pair<Moment, std::string>> folded() const;

    const Story& m_story;
    const bool m_all;
    const Terminal& m_terminal;
    std::string m_text;
};

void Screen::row(const std::string& label, const std::string& words, Tone tone) {
    std::string cell = "  " + label;
    cell.resize(std::max<size_t>(16, cell.size() + 1), ' ');
    m_text += cell + m_terminal.in(tone, words) + '\n';
}

void Screen::title(const std::string& words) {
    m_text += '\n' + m_terminal.in(Tone::kHeading, words) + '\n';
}

void Screen::heading(const std::string& name) {
    m_text += m_terminal.in(Tone::kHeading, printable(name)) + '\n';
    row("time",
        m_story.begin.stamp() + " to " + m_story.end.stamp() + ", " + durationText(m_story.end.ms));
    row("lines", std::to_string(m_story.daemonLines) + " of the daemon, " +
                         std::to_string(m_story.lines - m_story.daemonLines) + " others");
    for (const std::string& what : m_story.missing) {
        row("missing", printable(what), Tone::kWarning);
    }
}

void Screen::summary() {
    const Story& s = m_story;
    title("Link selection");
    if (s.selecting.count == 0) {
        row("ran", "never");
        return;
    }
    row("ran", countOf(s.selecting.count, "time") + ", for games and calls, " +
                       durationText(s.selecting.ms));
    row("switches",
        std::to_string(s.switches) + "; " + countOf(s.sockets, "socket") + " destroyed");
    row("worse link", durationText(s.worseMs) + " on a link of a lower level than another's");
    if (s.notGood.count == 0) {
        row("no good link", "never");
    } else {
        row("no good link",
            durationText(s.longestNotGoodMs) + " at most, from " + s.longestNotGoodAt.timeOfDay() +
                    "; " + countOf(s.notGood.count, "time") + ", " + durationText(s.notGood.ms) +
                    " in all",
            Tone::kWarning);
    }
    const int64_t refusals = s.delays.count + s.savings.count + s.otherRefusals.count;
    if (refusals == 0) {
        row("hysteresis", "refused no switch");
        return;
    }
    row("hysteresis", "refused a switch " + countOf(refusals, "time") + ", in " +
                              countOf(s.refusedChoices, "choice"));
    row("  cost more", countOf(s.delays.count, "time") + ", " + durationText(s.delays.ms) +
                               " on a worse link: the switch came anyway");
    row("  saved more", countOf(s.savings.count, "time") + ", " + durationText(s.savings.ms) +
                                " on a worse link: it passed, without a switch there and back");
}

void Screen::aggregation() {
    title("Aggregation");
    row("rebuilds", std::to_string(m_story.rebuilds) + ", of them " +
                            std::to_string(m_story.rebuildsWithoutRates) +
                            " by rates that no line tells: one pass in six seconds is logged");
}

// Moments to show, with their words.
std::vector<std::pair<Moment, std::string>> Screen::folded() const {
    std::vector<std::pair<Moment, std::string>> lines;
    int64_t rebuilds = 0;
    for (const Moment& moment : m_story.moments) {
        const bool isRebuild = moment.kind == MomentKind::kRebuild;
        rebuilds = isRebuild ? rebuilds + 1 : 0;
        if (!m_all && rebuilds > 1) {
            lines.back() = {moment, std::to_string(rebuilds) +
                                            " rebuilds up to here, the last: " + wordsOf(moment)};
        } else {
            lines.emplace_back(moment, wordsOf(moment));
        }
    }
    return lines;
}

void Screen::moments() {
    title("What happened");
    const auto lines = folded();
    const bool isWhole = m_all || lines.size() <= kMostLines;
    int32_t date = m_story.begin.date;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (!isWhole && i == kMostLines / 2) {
            const size_t left = lines.size() - kMostLines;
            m_text += m_terminal.in(Tone::kFaint,
                                    "  ... " + std::to_string(left) + " more; --all shows them") +
                      '\n';
            i += left;
        }
        const Moment& moment = lines[i].first;
        if (std::exchange(date, moment.at.date) != moment.at.date) {
            m_text += "  " + moment.at.stamp().substr(0, 5) + '\n';
        }
        const bool isBad = moment.kind == MomentKind::kRefusal ||
                           (moment.kind == MomentKind::kSwitch && moment.why == Why::kFailed);
        row(moment.at.timeOfDay(), lines[i].second, isBad ? Tone::kWarning : Tone::kPlain);
    }
    if (m_story.momentsLeftOut > 0) {
        m_text += "  " + std::to_string(m_story.momentsLeftOut) + " more were not kept\n";
    }
}

void Screen::failures() {
    title("Failures");
    const std::vector<Failure>& all = m_story.failures;
    const size_t shown = m_all ? all.size() : std::min(all.size(), kMostFailures);
    for (size_t i = 0; i < shown; ++i) {
        const Failure& failure = all[i];
        const std::string when =
                failure.count == 1 ? failure.first.timeOfDay()
                                   : failure.first.timeOfDay() + " to " + failure.last.timeOfDay();
        row(countOf(failure.count, "time"), when + "  " + printable(failure.text));
    }
    if (shown < all.size()) {
        m_text += m_terminal.in(Tone::kFaint, "  ... " + std::to_string(all.size() - shown) +
                                                      " more kinds; --all shows them") +
                  '\n';
    }
    if (all.empty()) {
        m_text += "  none\n";
    }
    if (m_story.expectedFailures > 0) {
        row("expected",
            std::to_string(m_story.expectedFailures) +
                    " lines while rules were set up and taken down",
            Tone::kFaint);
    }
}

}  // namespace

std::string screenOf(const Story& story, const std::string& name, bool all,
                     const Terminal& terminal) {
    return Screen(story, all, terminal).text(name);
}

}  // namespace lnkd
