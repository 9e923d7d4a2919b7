// SPDX-License-Identifier: Apache-2.0
#include "commands/subcommand.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "core/text_values.h"
#include "output/nearest.h"
#include "output/text.h"

namespace lnkd {

namespace {

constexpr int kMaxMilliseconds = 24 * 60 * 60 * 1000;
constexpr size_t kHelpColumn = 22;

const Option kHelpOption{"help", "", "this text"};

std::string usageOf(const Subcommand& command) {
    std::string usage = "lnkdctl";
    usage += command.name.empty() ? "" : " " + command.name;
    usage += command.options.empty() ? "" : " [OPTIONS]";
    if (!command.operand.empty()) {
        usage += command.operandNeeded ? " " + command.operand : " [" + command.operand + "]";
    }
    return usage;
}

std::string optionLine(const Option& option) {
    std::string line = "  --" + option.name;
    line += option.argument.empty() ? "" : "=" + option.argument;
    line.resize(std::max(kHelpColumn, line.size() + 2), ' ');
    return line + option.help + '\n';
}

const Option* findOption(const Subcommand& command, const std::string& name) {
    if (name == kHelpOption.name) {
        return &kHelpOption;
    }
    const auto found = std::find_if(command.options.begin(), command.options.end(),
                                    [&name](const Option& option) { return option.name == name; });
    return found == command.options.end() ? nullptr : &*found;
}

std::string unknownOption(const Subcommand& command, const std::string& word) {
    std::vector<std::string> allowed;
    for (const Option& option : command.options) {
        allowed.push_back("--" + option.name);
    }
    allowed.push_back("--" + kHelpOption.name);
    return quoted(word) + ": not an option" + suggestionFor(word, allowed);
}

}  // namespace

std::string Arguments::value(const std::string& option, const std::string& otherwise) const {
    const auto found = m_values.find(option);
    return found == m_values.end() ? otherwise : found->second;
}

bool parseArguments(const Subcommand& command, const std::vector<std::string>& words,
                    Arguments* arguments, std::string* error) {
    bool optionsEnded = false;
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (optionsEnded || word->size() < 2 || word->front() != '-') {
            arguments->operands.push_back(*word);
            continue;
        }
        if (*word == "--") {
            optionsEnded = true;
            continue;
        }
        const size_t equals = word->find('=');
        const Option* const option = word->compare(0, 2, "--") == 0
                                             ? findOption(command, word->substr(2, equals - 2))
                                             : nullptr;
        if (option == nullptr) {
            *error = unknownOption(command, word->substr(0, equals));
            return false;
        }
        std::string value = equals == std::string::npos ? "" : word->substr(equals + 1);
        if (option->argument.empty() && equals != std::string::npos) {
            *error = quoted(*word) + ": --" + option->name + " takes no argument";
            return false;
        }
        if (!option->argument.empty() && equals == std::string::npos) {
            if (word + 1 == words.end()) {
                *error = "--" + option->name + ": " + option->argument + " is missing";
                return false;
            }
            value = *++word;
        }
        arguments->m_values[option->name] = value;
    }
    if (arguments->has(kHelpOption.name)) {
        return true;
    }
    const size_t most = command.operand.empty() ? 0 : 1;
    if (arguments->operands.size() > most) {
        *error = quoted(arguments->operands[most]) + ": too much; the use is \"" +
                 usageOf(command) + '"';
        return false;
    }
    if (command.operandNeeded && arguments->operands.empty()) {
        *error = command.operand + " is missing";
        return false;
    }
    return true;
}

bool parseMilliseconds(const std::string& text, int* milliseconds) {
    // A number too large for strtol gives its largest, which is beyond a day too.
    const long value = std::strtol(text.c_str(), nullptr, 10);
    if (!isAllDigits(text) || value > kMaxMilliseconds) {
        return false;
    }
    *milliseconds = static_cast<int>(value);
    return true;
}

std::string helpOf(const Subcommand& command) {
    std::string help = "Usage: " + usageOf(command) + '\n' + command.summary + "\n\n";
    for (const Option& option : command.options) {
        help += optionLine(option);
    }
    help += optionLine(kHelpOption);
    return help + (command.notes.empty() ? "" : '\n' + command.notes);
}

int usageError(const std::string& command, const std::string& what) {
    const std::string name = command.empty() ? "lnkdctl" : "lnkdctl " + command;
    std::fprintf(stderr, "%s: %s\nTry \"%s --help\".\n", name.c_str(), what.c_str(), name.c_str());
    return kUsageStatus;
}

}  // namespace lnkd
