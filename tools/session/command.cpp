// SPDX-License-Identifier: Apache-2.0
#include "session/command.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "commands/subcommand.h"
#include "core/parameters.h"
#include "core/text_values.h"
#include "output/text.h"

namespace lnkd {
namespace {

constexpr size_t kBssidDigits = 12;
constexpr char kBlanks[] = " \t\r";

// Checks an argument and stores what it means; says in `error` what is wrong with it.
using Convert = bool (*)(const std::string& argument, Command* command, std::string* error);

// One command. Its name may be several words; the argument is always one word.
struct CommandRow {
    const char* name;
    const char* argument;  // for the help; in brackets when it may be left out
    const char* help;
    Action action;
    int32_t id;
    Convert convert;        // null: takes no argument
    const char* text = "";  // kSend without an argument: what the message carries
};

std::vector<std::string> split(const std::string& text, const char* separators, bool keepEmpty) {
    std::vector<std::string> parts;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find_first_of(separators, begin), text.size());
        if (keepEmpty || end > begin) {
            parts.push_back(text.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return parts;
}

bool consistsOf(const std::string& text, const char* characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string::npos;
}

// Twelve digits in a row, or six pairs with a colon between each two.
bool isBssid(const std::string& text) {
    std::string digits;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isPlaceOfColon = text.size() > kBssidDigits && i % 3 == 2;
        if (!isPlaceOfColon) {
            digits += text[i];
        } else if (text[i] != ':') {
            return false;
        }
    }
    return digits.size() == kBssidDigits && consistsOf(digits, "0123456789abcdefABCDEF") &&
           text.back() != ':';
}

bool convertInterfaces(const std::string& argument, Command* command, std::string* error) {
    if (!argument.empty()) {
        for (const std::string& name : split(argument, ",", true)) {
            if (!isInterfaceName(name)) {
                *error = quoted(name) +
                         ": not an interface name (letters, digits, _ . : -, at most 15; not "
                         "uid_..., not ..._wrapper)";
                return false;
            }
        }
    }
    command->text = argument;
    return true;
}

bool convertUids(const std::string& argument, Command* command, std::string* error) {
    if (argument == "none") {
        command->text = "NULL";  // an empty text would be the list of one empty UID
        return true;
    }
    for (const std::string& uid : split(argument, ",", true)) {
        if (!parseUid(uid) || uid.size() > Parameters::longestWhitelistUid) {
            *error = quoted(uid) +
                     ": not a UID for this list (digits, no leading 0, at most 5), nor none";
            return false;
        }
    }
    command->text = argument;
    return true;
}

bool convertBssids(const std::string& argument, Command* command, std::string* error) {
    const std::vector<std::string> bssids = split(argument, ",", true);
    for (const std::string& bssid : bssids) {
        // An empty place leaves that interface's BSSID as it is.
        if (!isBssid(bssid) && !(bssid.empty() && bssids.size() > 1)) {
            *error =
                    quoted(bssid) + ": not a BSSID (12 hexadecimal digits, with or without colons)";
            return false;
        }
    }
    if (bssids.size() > 2 || argument == ",") {
        *error = quoted(argument) + ": not one or two BSSIDs (of wlan0, of wlan1)";
        return false;
    }
    command->text = argument;
    return true;
}

bool convertMetered(const std::string& argument, Command* command, std::string* error) {
    if (argument != "0" && argument != "1") {
        *error = quoted(argument) + ": not 0 or 1";
        return false;
    }
    command->text = argument;
    return true;
}

// Unlike those of the whitelists, these UIDs may be long: each user of a phone has its own range.
bool convertSteeredUids(const std::string& argument, Command* command, std::string* error) {
    for (const std::string& uid : split(argument, ",", true)) {
        if (!parseUid(uid)) {
            *error = quoted(uid) + ": not a UID (digits, no leading 0, 32 bits)";
            return false;
        }
    }
    command->text = argument;
    return true;
}

bool convertCaller(const std::string& argument, Command* command, std::string* error) {
    // 0 would end a call, not start one.
    if (parseUid(argument).value_or(0) == 0) {
        *error = quoted(argument) +
                 ": not the UID of an application (digits, no leading 0, 32 bits, not 0)";
        return false;
    }
    command->text = argument;
    return true;
}

bool convertRtt(const std::string& argument, Command* command, std::string* error) {
    int milliseconds = 0;
    if (!parseMilliseconds(argument, &milliseconds)) {
        *error = quoted(argument) + ": not milliseconds (0 to 86400000)";
        return false;
    }
    command->text = argument;
    return true;
}

bool convertWait(const std::string& argument, Command* command, std::string* error) {
    if (!parseMilliseconds(argument, &command->waitMs)) {
        *error = quoted(argument) + ": not milliseconds (0 to 86400000)";
        return false;
    }
    return true;
}

constexpr CommandRow kCommands[] = {
        {"interfaces", "[NAMES]", "all interfaces that are up, comma-separated; none: nothing",
         Action::kSend, kUpdateInterfaces, convertInterfaces},
        {"whitelist", "UIDS", "applications whose traffic is steered; none: \"none\"",
         Action::kSend, kSetUidWhitelist, convertUids},
        {"double-wlan", "UIDS", "applications that may use the second Wi-Fi; none: \"none\"",
         Action::kSend, kSetDblWlanUidWhitelist, convertUids},
        {"bssid", "WLAN0[,WLAN1]", "access points of wlan0 and wlan1", Action::kSend,
         kUpdateInterfaceBssid, convertBssids},
        {"metered", "0|1", "whether cellular traffic is charged", Action::kSend,
         kUpdateInterfaceMode, convertMetered},
        {"game start", "UIDS", "a game of these applications starts", Action::kSend,
         kStartSlsServer, convertSteeredUids},
        {"game stop", "", "the game has ended", Action::kSend, kStopSlsServer, nullptr},
        {"voip start", "UID", "a call of this application starts", Action::kSend, kSetVoipStatus,
         convertCaller},
        {"voip stop", "", "the call has ended", Action::kSend, kSetVoipStatus, nullptr, "0"},
        {"rtt", "MS", "a round-trip time that applications see", Action::kSend,
         kUpdateSlsInterfacesRtt, convertRtt},
        {"wait", "MS", "pause before the next line", Action::kWait, 0, convertWait},
        {"help", "", "this list", Action::kHelp, 0, nullptr},
        {"quit", "", "end the session", Action::kQuit, 0, nullptr},
};

// The row whose name the line begins with, word for word, or null; `nameWords` is the number of
// words of that name.
const CommandRow* findRow(const std::vector<std::string>& words, size_t* nameWords) {
    for (const CommandRow& row : kCommands) {
        const std::vector<std::string> name = split(row.name, kBlanks, false);
        if (name.size() <= words.size() && std::equal(name.begin(), name.end(), words.begin())) {
            *nameWords = name.size();
            return &row;
        }
    }
    return nullptr;
}

}  // namespace

bool parseCommand(const std::string& line, Command* command, std::string* error) {
    *command = Command();
    const std::vector<std::string> words = split(line, kBlanks, false);
    if (words.empty() || words[0][0] == '#') {
        return true;
    }
    size_t nameWords = 0;
    const CommandRow* row = findRow(words, &nameWords);
    if (row == nullptr) {
        *error = quoted(words[0]) + ": not a command (\"help\" lists them)";
        return false;
    }
    const size_t arguments = words.size() - nameWords;
    if (arguments > (row->convert == nullptr ? 0U : 1U)) {
        *error = quoted(words[nameWords + (row->convert == nullptr ? 0U : 1U)]) +
                 ": too much for " + row->name + " (lists are comma-separated, without blanks)";
        return false;
    }
    if (arguments == 0 && row->convert != nullptr && row->argument[0] != '[') {
        *error = std::string(row->name) + ": " + row->argument + " is missing";
        return false;
    }
    command->action = row->action;
    command->name = row->name;
    command->id = row->id;
    if (row->convert == nullptr) {
        command->text = row->text;
        return true;
    }
    const std::string argument = arguments == 0 ? "" : words.back();
    if (argument.size() >= kMessageTextSize) {
        *error = std::string(row->name) + ": " + std::to_string(argument.size()) +
                 " bytes do not fit a message (at most " + std::to_string(kMessageTextSize - 1) +
                 ")";
        return false;
    }
    return row->convert(argument, command, error);
}

msg_t messageOf(const Command& command) {
    msg_t message = {};
    message.id = command.id;
    message.length = static_cast<int32_t>(command.text.size());
    std::memcpy(message.message, command.text.data(), command.text.size());
    return message;
}

bool isSessionWord(const std::string& word) {
    return std::any_of(std::begin(kCommands), std::end(kCommands), [&word](const CommandRow& row) {
        return split(row.name, kBlanks, false)[0] == word;
    });
}

std::string commandHelp() {
    constexpr size_t kHelpColumn = 28;
    std::string help;
    for (const CommandRow& row : kCommands) {
        std::string usage = std::string("  ") + row.name + ' ' + row.argument;
        usage.resize(std::max(kHelpColumn, usage.size() + 1), ' ');
        help += usage + row.help + '\n';
    }
    return help;
}

}  // namespace lnkd
