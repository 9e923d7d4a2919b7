// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace lnkd {

// Exit status of wrong usage, the same for each command.
constexpr int kUsageStatus = 2;

// An option of a command, "--name" or "--name=ARGUMENT".
struct Option {
    std::string name;      // without the dashes
    std::string argument;  // for the help, FILE when it names one; empty: takes none
    std::string help;      // a line
};

// What the command line of a command said.
class Arguments {
  public:
    bool has(const std::string& option) const { return m_values.count(option) != 0; }
    // The option's argument, the last one when it was given twice; `otherwise` without the option.
    std::string value(const std::string& option, const std::string& otherwise = "") const;

    std::vector<std::string> operands;

  private:
    friend bool parseArguments(const struct Subcommand&, const std::vector<std::string>&,
                               Arguments*, std::string*);
    std::map<std::string, std::string> m_values;
};

// One of the words that may follow "lnkdctl", with all that its help, its completion and the check
// of its command line are made from.
struct Subcommand {
    std::string name;
    std::string operand;  // for the help, FILE when it names one; empty: takes none
    bool operandNeeded = false;
    std::string summary;  // a line
    std::vector<Option> options;
    std::string notes;                       // behind the options: exit status, what to know; lines
    int (*run)(const Arguments& arguments);  // returns the exit status
    std::vector<std::string> choices = {};   // what the operand may be, when that is a closed list
};

// Reads the words behind the command's name. "--" ends the options. False for a wrong command
// line, with the offending word and what is allowed in `error`.
bool parseArguments(const Subcommand& command, const std::vector<std::string>& words,
                    Arguments* arguments, std::string* error);

// A whole number of milliseconds from 0 to a day, digits only. Returns false for anything else.
bool parseMilliseconds(const std::string& text, int* milliseconds);

// The command's help; fits a screen of 80 columns and 24 lines.
std::string helpOf(const Subcommand& command);

// Says on standard error what is wrong with the use of a command, and returns kUsageStatus.
int usageError(const std::string& command, const std::string& what);

}  // namespace lnkd
