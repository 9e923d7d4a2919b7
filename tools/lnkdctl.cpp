// SPDX-License-Identifier: Apache-2.0
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "commands/table.h"
#include "output/nearest.h"
#include "output/text.h"
#include "session/command.h"

namespace lnkd {
namespace {

void printHelp() {
    std::fputs("Usage: lnkdctl COMMAND [OPTIONS] [FILE]\n", stdout);
    std::string listed;
    for (const Subcommand& command : subcommands()) {
        if (!command.name.empty()) {
            std::string line = "  " + command.name;
            line.resize(14, ' ');
            listed += line + command.summary + '\n';
        }
    }
    std::fputs(listed.c_str(), stdout);
    std::fputs("\"lnkdctl COMMAND --help\" says more.\n\n", stdout);
    std::fputs(helpOf(*findSubcommand("")).c_str(), stdout);
    std::printf(
            "\nCommands of a session:\n%s"
            "Blank lines and lines that begin with # are skipped.\n"
            "Exit status: 0 all sent, 1 a line was refused, 2 usage, 3 no daemon.\n",
            commandHelp().c_str());
}

int wordError(const std::string& word) {
    if (isSessionWord(word)) {
        return usageError("", quoted(word) +
                                      ": a command of a session, of which the daemon serves one in "
                                      "its life; start it, and type the command there");
    }
    std::vector<std::string> names;
    for (const Subcommand& known : subcommands()) {
        if (!known.name.empty()) {
            names.push_back(known.name);
        }
    }
    return usageError("", quoted(word) + ": not a command" + suggestionFor(word, names));
}

int runTool(const std::vector<std::string>& words) {
    const bool isNamed = !words.empty() && (words[0].empty() || words[0][0] != '-');
    const Subcommand* const command = findSubcommand(isNamed ? words[0] : "");
    if (command == nullptr || (isNamed && words[0].empty())) {
        return wordError(words[0]);
    }
    Arguments arguments;
    std::string error;
    if (!parseArguments(*command, {words.begin() + (isNamed ? 1 : 0), words.end()}, &arguments,
                        &error)) {
        return usageError(command->name, error);
    }
    if (arguments.has("help")) {
        if (isNamed) {
            std::fputs(helpOf(*command).c_str(), stdout);
        } else {
            printHelp();
        }
        return 0;
    }
    if (!isNamed && arguments.has("version")) {
        std::puts("lnkdctl 3.0.4.5");
        return 0;
    }
    return command->run(arguments);
}

bool hasReaderGone() {
    pollfd output{STDOUT_FILENO, 0, 0};
    return poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

// A full disk is no success; of a reader who has seen enough, nothing is said.
int statusOnceWritten(int status) {
    const bool isWritten = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    if (isWritten || hasReaderGone()) {
        return status;
    }
    std::fputs("lnkdctl: not all of the output could be written\n", stderr);
    return status != 0 ? status : 1;
}

}  // namespace
}  // namespace lnkd

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // also for a reader of our output that is gone
    std::signal(SIGCHLD, SIG_DFL);  // ignored, as some parents leave it, no status would be left
    return lnkd::statusOnceWritten(lnkd::runTool({argv + 1, argv + argc}));
}
