// SPDX-License-Identifier: Apache-2.0
#include "check/config_report.h"

#include <algorithm>
#include <map>
#include <optional>

#include "core/config_file.h"
#include "core/parameters.h"

namespace lnkd {

namespace {

struct GivenValue {
    size_t line = 0;
    std::string text;
};

using GivenValues = std::map<std::string, GivenValue>;  // the last of each key

// The value of a key that the daemon's threads share.
std::string sharedText(const Parameters& store, std::string_view key, const std::string& given) {
    if (key == "rtt_server") {
        return store.probeTarget().server;
    }
    if (key == "num_interfaces") {
        return std::to_string(store.numInterfaces());
    }
    if (key == "uid_whitelist") {
        std::vector<std::string> skipped;
        std::string list;
        for (const std::string& uid : steeredUids(given, &skipped)) {
            list += (list.empty() ? "" : ",") + uid;
        }
        return list;
    }
    return given;  // descriptions of interfaces
}

// What is in force of a number in the store. A key with a least value is read as a signed number.
std::string numberText(int64_t stored, const KeyNote& note) {
    const NumberRange& taken = note.taken;
    const int64_t read = taken.holds(stored) ? stored : static_cast<int32_t>(stored);
    return std::to_string(std::clamp(read, taken.least, taken.most));
}

std::string valueText(const Parameters& store, const Parameters::ConfigKey& key,
                      const KeyNote& note, const std::string& given) {
    if (const auto* oper = std::get_if<OperId>(&key.target)) {
        return numberText(store.get(*oper), note);
    }
    if (const auto* number = std::get_if<uint32_t Parameters::*>(&key.target)) {
        return numberText(store.**number, note);
    }
    if (const auto* signedNumber = std::get_if<int32_t Parameters::*>(&key.target)) {
        return numberText(store.**signedNumber, note);
    }
    if (const auto* text = std::get_if<std::string Parameters::*>(&key.target)) {
        return store.**text;
    }
    return sharedText(store, key.name, given);
}

std::vector<ConfigValue> valuesIn(const Parameters& store, const GivenValues& given) {
    std::vector<ConfigValue> values;
    for (const KeyNote& note : keyNotes()) {
        const auto found = given.find(std::string(note.key));
        const GivenValue last = found == given.end() ? GivenValue{} : found->second;
        if (const Parameters::ConfigKey* const key = findConfigKey(note.key)) {
            values.push_back(
                    {&note, valueText(store, *key, note, last.text), isNumber(*key), last.line});
        }
    }
    return values;
}

// Whether a further line replaces what this one sets.
void judgeRepetition(const ConfigLine& line, const GivenValues& given,
                     std::vector<ConfigFinding>* findings) {
    const std::optional<ConfigPair> pair = configPair(line.text);
    if (!pair.has_value()) {
        return;
    }
    const std::string key = asTaken(*pair).key;
    const size_t last = given.at(key).line;
    if (findConfigKey(key) != nullptr && last != line.number) {
        findings->push_back({line.number, Severity::kWarning, key,
                             "given again in line " + std::to_string(last) + ", which counts"});
    }
}

}  // namespace

size_t ConfigReport::count(Severity severity) const {
    return static_cast<size_t>(std::count_if(
            findings.begin(), findings.end(),
            [severity](const ConfigFinding& one) { return one.severity == severity; }));
}

ConfigReport reportOn(const std::string& content) {
    Parameters store;
    ConfigReport report;
    const std::vector<ConfigLine> lines = configLines(content);
    GivenValues given;
    for (const ConfigLine& line : lines) {
        store.fromVector({line.text});
        if (const std::optional<ConfigPair> pair = configPair(line.text)) {
            const ConfigPair taken = asTaken(*pair);
            given[taken.key] = {line.number, taken.value};
        }
    }
    for (const ConfigLine& line : lines) {
        judgeLine(line, &report.findings);
        judgeRepetition(line, given, &report.findings);
    }
    report.values = valuesIn(store, given);
    return report;
}

}  // namespace lnkd
