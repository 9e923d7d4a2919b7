// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <map>
#include <utility>

#include "explain/replays.h"
#include "explain/words.h"
#include "output/text.h"

namespace lnkd {

namespace {

std::string totalText(const Total& total) {
    return std::to_string(total.count) + (total.count > 0 ? ", " + durationText(total.ms) : "");
}

// A decision in few words; empty for what is none.
std::string decisionOf(const Moment& moment) {
    if (moment.kind == MomentKind::kRefusal) {
        return "refused " + moment.to.name + " for " + durationText(moment.lastedMs);
    }
    if (moment.kind != MomentKind::kSwitch) {
        return "";
    }
    switch (moment.why) {
        case Why::kFirst:
            return "first choice: " + moment.to.name;
        case Why::kGone:
            return "to " + moment.to.name + ", the other went";
        case Why::kFailed:
            return "to " + moment.to.name + ", " + moment.from.name + " failed";
        default:
            return "to " + moment.to.name + ", level " + std::to_string(moment.from.level) +
                   " to " + std::to_string(moment.to.level);
    }
}

struct Row {
    const char* label;
    std::string (*figure)(const Story& story);
};

constexpr Row kRows[] = {
        {"switches", [](const Story& s) { return std::to_string(s.switches); }},
        {"on a worse link", [](const Story& s) { return durationText(s.worseMs); }},
        {"no good link", [](const Story& s) { return totalText(s.notGood); }},
        {"refused choices", [](const Story& s) { return std::to_string(s.refusedChoices); }},
        {"  only delayed", [](const Story& s) { return totalText(s.delays); }},
        {"  passed by itself", [](const Story& s) { return totalText(s.savings); }},
        {"rebuilds of shares", [](const Story& s) { return std::to_string(s.rebuilds); }},
};

// What a replay counts of a game that began before the log: "..., 12 passed over, ...".
std::string notDecided(const Story& story) {
    if (story.choices == 0) {
        return "No choice was decided again: no game starts in the log, and of one that began "
               "before "
               "it\nnot enough is known.\n";
    }
    const std::string& text = story.replayed;
    const size_t end = std::min(text.find(" passed over"), text.size());
    const size_t begin = text.find_last_not_of("0123456789", end == 0 ? 0 : end - 1);
    const std::string count =
            begin == std::string::npos ? "" : text.substr(begin + 1, end - begin - 1);
    return count.empty() || count == "0"
                   ? ""
                   : count + " choices of a game that began before the log are not in either.\n";
}

constexpr char kYardstick[] =
        "Worse is a lower level than another link's by the median of the last three probes, the\n"
        "same measure for all tunables.\n";
constexpr char kNotTold[] =
        "What the links, and the sockets, would have done for another switch, no log tells.\n";

}  // namespace

std::string comparisonOf(const Story& logged, const Story& changed,
                         const std::vector<std::string>& tunables, const Terminal& terminal) {
    std::string with = "with";
    for (const std::string& word : tunables) {
        with += ' ' + word;
    }
    Table figures({"", "as logged", with});
    for (const Row& row : kRows) {
        const std::string before = row.figure(logged);
        const std::string after = row.figure(changed);
        figures.add(
                {{row.label}, {before}, {after, before == after ? Tone::kFaint : Tone::kPlain}});
    }
    // Both stories by time; what both tell at one moment is one row.
    std::map<std::pair<int64_t, std::string>, std::pair<std::string, std::string>> rows;
    std::map<int64_t, std::string> stamps;
    for (const bool isLogged : {true, false}) {
        for (const Moment& moment : (isLogged ? logged : changed).moments) {
            const std::string words = decisionOf(moment);
            if (!words.empty()) {
                auto& row = rows[{moment.at.ms, words}];
                (isLogged ? row.first : row.second) = words;
                stamps[moment.at.ms] = moment.at.stamp();
            }
        }
    }
    Table decisions({"time", "as logged", with});
    for (const auto& [key, row] : rows) {
        const Tone tone = row.first == row.second ? Tone::kFaint : Tone::kPlain;
        decisions.add({{stamps[key.first]}, {row.first, tone}, {row.second, tone}});
    }
    return figures.lines(terminal) + '\n' + (rows.empty() ? "" : decisions.lines(terminal) + '\n') +
           kYardstick + kNotTold + notDecided(logged);
}

std::string sweepTable(const Sweep& sweep, const std::vector<Story>& stories, const Story& logged,
                       const Terminal& terminal) {
    Table table({sweep.key, " switches", " worse link", " no good link", " refused",
                 " only delayed", " rebuilds"});
    const auto add = [&table](const std::string& name, const Story& story) {
        table.add({{name},
                   {std::to_string(story.switches)},
                   {durationText(story.worseMs)},
                   {durationText(story.notGood.ms)},
                   {std::to_string(story.refusedChoices)},
                   {std::to_string(story.delays.count)},
                   {std::to_string(story.rebuilds)}});
    };
    add("as logged", logged);
    for (size_t i = 0; i < stories.size(); ++i) {
        add(std::to_string(sweep.values[i]), stories[i]);
    }
    return table.lines(terminal) + '\n' + kYardstick + notDecided(logged);
}

}  // namespace lnkd
