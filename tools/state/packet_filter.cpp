// SPDX-License-Identifier: Apache-2.0
#include "state/packet_filter.h"

#include <algorithm>
#include <charconv>

#include "core/text_values.h"
#include "state/program.h"

namespace lnkd {

namespace {

// The next word of a line, quotes and what they protect resolved; false at its end.
bool takeWord(std::string_view& line, std::string* word) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    if (line.empty()) {
        return false;
    }
    word->clear();
    bool isQuoted = false;
    size_t i = 0;
    for (; i < line.size() && (isQuoted || line[i] != ' '); ++i) {
        if (line[i] == '"') {
            isQuoted = !isQuoted;
            continue;
        }
        if (line[i] == '\\' && i + 1 < line.size()) {
            ++i;
        }
        *word += line[i];
    }
    line.remove_prefix(i);
    return true;
}

bool parseCounter(const std::string& word, uint64_t* value) {
    const char* const end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, *value);
    return error == std::errc() && stop == end;
}

// "-c PACKETS BYTES" somewhere among the words: the two flavours of the tool print it in front of
// the target and behind the matches.
FilterRule ruleOf(std::string_view line) {
    FilterRule rule;
    std::string word;
    while (takeWord(line, &word)) {
        rule.words.push_back(word);
        const size_t n = rule.words.size();
        if (n >= 3 && rule.words[n - 3] == "-c" && parseCounter(rule.words[n - 2], &rule.packets) &&
            parseCounter(rule.words[n - 1], &rule.bytes)) {
            rule.words.resize(n - 3);
        }
    }
    return rule;
}

Reading<FilterTable> tableOf(const ProgramResult& result, const char* name) {
    if (!result.succeeded()) {
        return {{}, std::string("packet filter, table ") + name + ": " + result.complaint()};
    }
    return parseFilterTable(result.output);
}

}  // namespace

const std::string& FilterRule::valueOf(std::string_view option) const {
    static const std::string kNone;
    const auto found = std::find(words.begin(), words.end(), option);
    return found == words.end() || found + 1 == words.end() ? kNone : *(found + 1);
}

std::string FilterRule::text() const {
    std::string all;
    for (const std::string& word : words) {
        all += (all.empty() ? "" : " ") + word;
    }
    return all;
}

Reading<FilterTable> parseFilterTable(std::string_view listing) {
    Reading<FilterTable> table;
    while (!listing.empty()) {
        const size_t lineEnd = std::min(listing.find('\n'), listing.size());
        std::string_view line = listing.substr(0, lineEnd);
        listing.remove_prefix(std::min(lineEnd + 1, listing.size()));
        std::string kind;
        std::string chain;
        if (!takeWord(line, &kind) || !takeWord(line, &chain)) {
            continue;
        }
        if (kind == "-P" || kind == "-N") {
            table.value[chain];
        } else if (kind == "-A") {
            const auto known = table.value.find(chain);
            if (known == table.value.end()) {
                return Reading<FilterTable>::failed("packet filter: a rule of an unknown chain, " +
                                                    chain);
            }
            known->second.push_back(ruleOf(line));
        }
    }
    return table;
}

bool isChainOfDaemon(std::string_view chain) {
    constexpr std::string_view kPrefix = "zelk_";
    return chain.substr(0, kPrefix.size()) == kPrefix;
}

// "0x5a/0xffffffff" or "0x5a".
std::optional<uint32_t> markSetBy(const FilterRule& rule) {
    const std::string& set = rule.valueOf("--set-xmark");
    const std::string& mark = set.empty() ? rule.valueOf("--set-mark") : set;
    return parseFwmark(mark.substr(0, mark.find('/')));
}

std::set<uint32_t> marksOfChains(const FilterTable& mangle) {
    std::set<uint32_t> marks;
    for (const auto& [chain, rules] : mangle) {
        for (const FilterRule& rule : rules) {
            const auto mark = markSetBy(rule);
            if (isChainOfDaemon(chain) && mark.has_value()) {
                marks.insert(*mark);
            }
        }
    }
    return marks;
}

PacketFilter readPacketFilter() {
    const auto command = [](const char* table) {
        return std::vector<std::string>{kPacketFilterTool, "-w", "-t", table, "-S", "-v"};
    };
    const std::vector<ProgramResult> results = runPrograms({command("mangle"), command("nat")});
    return {tableOf(results[0], "mangle"), tableOf(results[1], "nat")};
}

}  // namespace lnkd
