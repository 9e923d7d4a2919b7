// SPDX-License-Identifier: Apache-2.0
#include "commands/completion.h"

#include <cstdio>

#include "commands/table.h"
#include "output/nearest.h"
#include "output/text.h"

namespace lnkd {

namespace {

constexpr char kFile[] = "FILE";

std::vector<std::string> optionWords(const Subcommand& command) {
    std::vector<std::string> words;
    for (const Option& option : command.options) {
        words.push_back("--" + option.name + (option.argument.empty() ? "" : "="));
    }
    words.emplace_back("--help");
    return words;
}

// The first word completes to a command or an option of the session; after a command come its
// options and what its operand may be; behind "=" the option's own argument.
std::string bashScript() {
    std::string names;
    std::string branches;
    std::string fileOptions;
    for (const Subcommand& command : subcommands()) {
        std::string words = joined(optionWords(command), " ");
        for (const std::string& choice : command.choices) {
            words += ' ' + choice;
        }
        for (const Option& option : command.options) {
            if (option.argument == kFile) {
                fileOptions += (fileOptions.empty() ? "--" : "|--") + option.name;
            }
        }
        names += command.name.empty() ? "" : command.name + ' ';
        branches += "        " + (command.name.empty() ? "''" : command.name) + ") words='" +
                    words + (command.name.empty() ? " '\"$commands\"" : "'") +
                    (command.operand == kFile ? "; files=1" : "") + " ;;\n";
    }
    return "# bash completion of lnkdctl, made by \"lnkdctl completion bash\"\n"
           "_lnkdctl() {\n"
           "    local current previous command='' files='' words='' i\n"
           "    local commands='" +
           names +
           "'\n"
           "    current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
           "    # \"=\" is a word of its own here.\n"
           "    if [ \"$current\" = = ]; then\n"
           "        current=''\n"
           "    elif [ \"$previous\" = = ]; then\n"
           "        previous=${COMP_WORDS[COMP_CWORD - 2]}\n"
           "    fi\n"
           "    case $previous in\n"
           "        " +
           (fileOptions.empty() ? "''" : fileOptions) +
           ") compopt -o filenames\n"
           "            mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
           "            return ;;\n"
           "    esac\n"
           "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "        case \" $commands\" in *\" ${COMP_WORDS[i]} \"*)"
           " command=${COMP_WORDS[i]}; break ;; esac\n"
           "    done\n"
           "    case $command in\n" +
           branches +
           "    esac\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
           "    if [ -n \"$files\" ] && [ \"${current#-}\" = \"$current\" ]; then\n"
           "        compopt -o filenames\n"
           "        mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
           "    fi\n"
           "    case ${COMPREPLY[0]} in *=) compopt -o nospace ;; esac\n"
           "}\n"
           "complete -F _lnkdctl lnkdctl\n";
}

// A text in an entry of _arguments or _describe: "'" ends the word, ":" and "]" a field.
std::string zshText(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '\'') {
            result += "'\\'";
        } else if (c == ':' || c == '[' || c == ']' || c == '\\') {
            result += '\\';
        }
        result += c;
    }
    return result;
}

std::string zshArguments(const Subcommand& command) {
    std::string lines;
    for (const Option& option : command.options) {
        lines += " \\\n            '--" + option.name + (option.argument.empty() ? "" : "=") + '[' +
                 zshText(option.help) + ']';
        if (!option.argument.empty()) {
            lines += ':' + zshText(option.argument) + ':' +
                     (option.argument == kFile ? "_files" : " ");
        }
        lines += '\'';
    }
    lines += " \\\n            '--help[this text]'";
    if (!command.choices.empty()) {
        lines += " \\\n            '1:" + command.operand + ":(" + joined(command.choices, " ") +
                 ")'";
    } else if (command.operand == kFile) {
        lines += " \\\n            '1:FILE:_files'";
    }
    return lines;
}

std::string zshScript() {
    std::string descriptions;
    std::string branches;
    std::string session;
    for (const Subcommand& command : subcommands()) {
        if (command.name.empty()) {
            session = zshArguments(command);
            continue;
        }
        descriptions += "        '" + command.name + ':' + zshText(command.summary) + "'\n";
        branches += "        " + command.name + ") _arguments" + zshArguments(command) + " ;;\n";
    }
    return "#compdef lnkdctl\n"
           "# zsh completion of lnkdctl, made by \"lnkdctl completion zsh\"\n"
           "_lnkdctl() {\n"
           "    local line state\n"
           "    local -a commands=(\n" +
           descriptions +
           "    )\n"
           "    _arguments -C" +
           session +
           " \\\n            '1:command:->command' '*::argument:->argument'\n"
           "    if [[ $state == command ]]; then\n"
           "        _describe command commands\n"
           "        return\n"
           "    fi\n"
           "    case $line[1] in\n" +
           branches +
           "    esac\n"
           "}\n"
           "_lnkdctl \"$@\"\n";
}

int runCompletion(const Arguments& arguments) {
    const std::string& shell = arguments.operands[0];
    const std::vector<std::string>& shells = completionCommand().choices;
    if (shell != shells[0] && shell != shells[1]) {
        return usageError("completion",
                          quoted(shell) + ": not a shell" + suggestionFor(shell, shells));
    }
    std::fputs((shell == shells[0] ? bashScript() : zshScript()).c_str(), stdout);
    return 0;
}

}  // namespace

Subcommand completionCommand() {
    Subcommand command;
    command.name = "completion";
    command.operand = "SHELL";
    command.operandNeeded = true;
    command.summary = "Prints a script that completes lnkdctl's words in a shell.";
    command.notes = "SHELL is bash or zsh. To try it: . <(lnkdctl completion bash)\n";
    command.run = runCompletion;
    command.choices = {"bash", "zsh"};
    return command;
}

}  // namespace lnkd
