// SPDX-License-Identifier: Apache-2.0
#include "check/config_line.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "check/key_notes.h"
#include "core/parameters.h"
#include "core/text_values.h"
#include "output/nearest.h"
#include "output/text.h"

namespace lnkd {

namespace {

// Collects what is wrong with one line.
class LineFindings {
  public:
    LineFindings(size_t line, std::string about, std::vector<ConfigFinding>* findings)
        : m_line(line), m_about(std::move(about)), m_findings(findings) {}

    void error(const std::string& text) { add(Severity::kError, text); }
    void warning(const std::string& text) { add(Severity::kWarning, text); }
    // Of this line and those before it.
    size_t count() const { return m_findings->size(); }

  private:
    void add(Severity severity, const std::string& text) {
        m_findings->push_back({m_line, severity, m_about, text});
    }

    size_t m_line;
    std::string m_about;
    std::vector<ConfigFinding>* m_findings;
};

std::string quotedList(std::vector<std::string> words) {
    std::transform(words.begin(), words.end(), words.begin(), quoted);
    return joined(words);
}

std::string rangeText(const NumberRange& range) {
    return std::to_string(range.least) + " to " + std::to_string(range.most);
}

bool isUnsigned(const Parameters::ConfigKey& key) {
    return !std::holds_alternative<int32_t Parameters::*>(key.target);
}

// A number whose digits the daemon does not take for what they say; false for none.
bool judgeDigits(const std::string& value, const KeyNote& note, LineFindings* out) {
    char* end = nullptr;
    const long long written = strtoll(value.c_str(), &end, 10);
    const std::string taken = std::to_string(parseInt(value.c_str()));
    std::string rest = end;
    rest.erase(rest.find_last_not_of(" \t\r") + 1);
    rest.erase(0, rest.find_first_not_of(" \t"));
    if (end == value.c_str()) {
        out->error("no number, taken as 0");
    } else if (written != parseInt(value.c_str())) {
        out->error("beyond 32 bits, taken as " + taken);
    } else if (!rest.empty() && rest != note.unit && !(rest == "%" && note.unit == "percent")) {
        const std::string unit = note.unit.empty() ? "" : " " + std::string(note.unit);
        out->error("read as " + taken + unit + "; " + quoted(rest) + " is ignored");
    } else {
        return false;
    }
    return true;
}

void judgeNumber(const std::string& value, const Parameters::ConfigKey& key, const KeyNote& note,
                 LineFindings* out) {
    const int64_t number = parseInt(value.c_str());
    if (judgeDigits(value, note, out)) {
        return;
    }
    if (!value.empty() && value.back() == '\r') {
        out->warning(
                "ends in a carriage return; no harm to a number, but it would become part of a "
                "text");
    }
    if (!note.taken.holds(number)) {
        const bool isBelow = number < note.taken.least;
        const std::string limit = std::to_string(isBelow ? note.taken.least : note.taken.most);
        out->error((isBelow ? "below " : "above ") + limit + ", taken as " + limit);
    } else if (isUnsigned(key) && number < 0) {
        out->error("below 0, becomes " + std::to_string(static_cast<uint32_t>(number)));
    } else if (!note.sensible.holds(number)) {
        out->warning("hardly sensible, expected " + rangeText(note.sensible) +
                     (note.beyond.empty() ? "" : "; " + std::string(note.beyond)));
    }
}

void judgeServer(const std::string& value, LineFindings* out) {
    in_addr address{};
    if (inet_pton(AF_INET, value.c_str(), &address) != 1) {
        out->error("no IPv4 address (digits and dots), no probe is answered");
    } else if (value != kDefaultRttServer) {
        out->warning(
                std::string("counts until the first game or call starts, which goes back to ") +
                kDefaultRttServer);
    }
}

void judgePorts(const std::string& value, LineFindings* out) {
    std::vector<std::string> wrong;
    for (const std::string& port : splitList(value)) {
        if (!isAllDigits(port) || parseInt(port.c_str()) < 1 || parseInt(port.c_str()) > 65535) {
            wrong.push_back(port);
        }
    }
    if (!wrong.empty()) {
        out->warning("no port (1 to 65535): " + quotedList(wrong));
    }
}

void judgeText(const std::string& value, const KeyNote& note, LineFindings* out) {
    if (value.find('\r') != std::string::npos) {
        out->error("a carriage return becomes part of the text; lines end with a line feed alone");
        return;  // what else is wrong comes from it
    }
    if (note.key == "rtt_server") {
        judgeServer(value, out);
    } else if (note.key == "ports") {
        judgePorts(value, out);
    } else if (note.key == "uid_whitelist") {
        std::vector<std::string> skipped;
        steeredUids(value, &skipped);
        if (!skipped.empty()) {
            out->error("skipped, no UID (digits, no leading 0, at most " +
                       std::to_string(Parameters::longestWhitelistUid) +
                       "): " + quotedList(skipped));
        }
    }
}

// The known key that was meant; "" when there is none, or when so much is wrong before that the
// file is hardly one of the daemon's: a search for each of its lines would take long.
std::string meantBy(const std::string& key, size_t findingsBefore) {
    constexpr size_t kMostFindings = 100;
    if (findingsBefore >= kMostFindings) {
        return "";
    }
    std::vector<std::string> names;
    for (const KeyNote& note : keyNotes()) {
        names.emplace_back(note.key);
    }
    return nearestOf(key, names);
}

void judgeUnknown(const ConfigPair& pair, LineFindings* out) {
    const std::string meant = meantBy(pair.key, out->count());
    out->error("no such key, the line is skipped" +
               (meant.empty() ? std::string() : "; did you mean " + meant + "?"));
}

void judgePair(const ConfigPair& pair, LineFindings* out) {
    const Parameters::ConfigKey* const key = findConfigKey(pair.key);
    const KeyNote* const note = findKeyNote(pair.key);
    if (key == nullptr || note == nullptr) {
        judgeUnknown(pair, out);
    } else if (note->use == KeyUse::kUnused) {
        out->warning("kept, and not used");
    } else if (note->use == KeyUse::kReplacedAtStart) {
        out->warning("replaced by the property " + std::string(note->replacedBy));
    } else if (isNumber(*key)) {
        judgeNumber(pair.value, *key, *note, out);
    } else {
        judgeText(pair.value, *note, out);
    }
}

// A value in a line about it.
std::string shown(const std::string& value) {
    const std::string text = quoted(value);
    return text.substr(1, text.size() - 2);
}

}  // namespace

void judgeLine(const ConfigLine& line, std::vector<ConfigFinding>* findings) {
    const std::optional<ConfigPair> pair = configPair(line.text);
    if (!pair.has_value()) {
        if (line.text != "\r") {  // an empty line, but for its end
            LineFindings(line.number, quoted(line.text), findings)
                    .error("no \"=\", the line is skipped");
        }
        return;
    }
    const ConfigPair taken = asTaken(*pair);
    const bool isKnown = findConfigKey(taken.key) != nullptr;
    const std::string value = shown(pair->value);
    LineFindings out(line.number, isKnown ? taken.key + " = " + value : quoted(pair->key),
                     findings);
    if (taken.key != pair->key || taken.value != pair->value) {
        out.error("cut at its first NUL byte");
    }
    judgePair(taken, &out);
}

ConfigPair asTaken(const ConfigPair& pair) {
    return {pair.key.substr(0, pair.key.find('\0')), pair.value.substr(0, pair.value.find('\0'))};
}

const Parameters::ConfigKey* findConfigKey(std::string_view name) {
    const std::vector<Parameters::ConfigKey>& keys = Parameters::configKeys();
    const auto found =
            std::find_if(keys.begin(), keys.end(),
                         [name](const Parameters::ConfigKey& key) { return key.name == name; });
    return found == keys.end() ? nullptr : &*found;
}

bool isNumber(const Parameters::ConfigKey& key) {
    return !std::holds_alternative<std::string Parameters::*>(key.target) &&
           (!std::holds_alternative<Parameters::ConfigSetter>(key.target) ||
            key.name == "num_interfaces");
}

std::vector<std::string> steeredUids(const std::string& list, std::vector<std::string>* skipped) {
    std::vector<std::string> uids;
    for (const std::string& entry : splitList(list)) {
        const bool isTaken = entry.size() <= Parameters::longestWhitelistUid && parseUid(entry);
        (isTaken ? uids : *skipped).push_back(entry);
    }
    return uids;
}

}  // namespace lnkd
