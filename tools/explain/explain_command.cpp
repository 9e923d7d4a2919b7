// SPDX-License-Identifier: Apache-2.0
#include "explain/explain_command.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "explain/page.h"
#include "explain/replays.h"
#include "explain/story_json.h"
#include "explain/story_reader.h"
#include "explain/words.h"
#include "output/text.h"

namespace lnkd {

namespace {

constexpr char kName[] = "explain";
constexpr int kFailedStatus = 1;
constexpr size_t kHelpWidth = 70;

int fail(const std::string& what, const std::string& error) {
    std::fprintf(stderr, "lnkdctl %s: %s: %s\n", kName, quoted(what).c_str(), error.c_str());
    return kFailedStatus;
}

// Keeps what standard input brings in a file without a name, which can be read again and again;
// the path of it, or empty.
std::string keptInput(FILE* file) {
    char block[64 * 1024];
    ssize_t n = 0;
    while ((n = read(STDIN_FILENO, block, sizeof(block))) != 0) {
        if (n < 0 && errno != EINTR) {
            return "";
        }
        const auto size = static_cast<size_t>(n > 0 ? n : 0);
        if (fwrite(block, 1, size, file) != size) {
            return "";
        }
    }
    return fflush(file) != 0
                   ? ""
                   : "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fileno(file));
}

int runReplays(const Arguments& arguments, const ReplayedLog& log,
               const std::vector<std::string>& tunables, const Sweep& sweep) {
    const Terminal terminal;
    Story logged;
    std::string error;
    if (!verifiedStory(log, &logged, &error)) {
        return fail(arguments.operands[0], error);
    }
    if (!tunables.empty()) {
        Story changed;
        if (!replayStory(log, tunables, &changed, &error)) {
            return fail(arguments.operands[0], error);
        }
        std::fputs(comparisonOf(logged, changed, tunables, terminal).c_str(), stdout);
    }
    if (!sweep.values.empty()) {
        std::vector<Story> stories;
        if (!sweepStories(log, sweep, &stories, &error)) {
            return fail(arguments.operands[0], error);
        }
        std::fputs(sweepTable(sweep, stories, logged, terminal).c_str(), stdout);
    }
    return 0;
}

int replay(const Arguments& arguments) {
    ReplayedLog log{arguments.operands[0], arguments.value("conf")};
    std::vector<std::string> tunables;
    Sweep sweep;
    std::string error;
    if (arguments.has("with") && !parseTunables(arguments.value("with"), &tunables, &error)) {
        return usageError(kName, "--with: " + error);
    }
    if (arguments.has("sweep") && !parseSweep(arguments.value("sweep"), &sweep, &error)) {
        return usageError(kName, "--sweep: " + error);
    }
    if (arguments.has("conf") && access(log.conf.c_str(), R_OK) != 0) {
        return fail(log.conf, strerror(errno));
    }
    if (log.path != "-") {
        return runReplays(arguments, log, tunables, sweep);
    }
    FILE* const file = tmpfile();
    log.path = file != nullptr ? keptInput(file) : "";
    const int status = log.path.empty() ? fail("-", strerror(errno))
                                        : runReplays(arguments, log, tunables, sweep);
    if (file != nullptr) {
        fclose(file);
    }
    return status;
}

int runExplain(const Arguments& arguments) {
    const std::string& path = arguments.operands[0];
    if (arguments.has("with") || arguments.has("sweep")) {
        if (arguments.has("page") || arguments.has("json")) {
            return usageError(kName, "--page and --json tell of the log itself, not of a replay");
        }
        return replay(arguments);
    }
    Story story;
    std::string error;
    if (!readStory(path, &story, &error)) {
        return fail(path, error);
    }
    const Terminal terminal;
    const std::string text = arguments.has("json")
                                     ? jsonOf(story, path, false)
                                     : screenOf(story, path, arguments.has("all"), terminal);
    std::fputs(text.c_str(), stdout);
    const std::string page = arguments.value("page");
    if (arguments.has("page") && !writePage(story, path, page, &error)) {
        std::fflush(stdout);
        return fail(page, "no page: " + error);
    }
    return 0;
}

}  // namespace

Subcommand explainCommand() {
    Subcommand command;
    command.name = kName;
    command.operand = "FILE";
    command.operandNeeded = true;
    command.summary = "Tells the story of a log, and what other tunables would have made of it.";
    command.options = {
            {"all", "", "every moment and failure, however long the log is"},
            {"json", "", "the same for programs"},
            {"page", "FILE", "also a page with plots (HTML; needs Python)"},
            {"with", "LIST", "decide again with other tunables, KEY=VALUE,KEY=VALUE,"},
            {"sweep", "RANGE", "or with a range of one, KEY=FROM..TO/STEP, and compare"},
            {"conf", "FILE", "the daemon's configuration, for what no log tells"},
    };
    std::string tunables = replayableTunables();
    tunables.replace(tunables.rfind(", ", kHelpWidth), 2, ",\n  ");
    command.notes =
            "FILE is in the form of \"logcat -v threadtime\", plain or packed by gzip; \"-\" is\n"
            "standard input. Tunables for --with and --sweep:\n  " +
            tunables +
            "\nExit status: 0 told, 1 it could not be read, replayed or drawn, 2 usage.\n";
    command.run = runExplain;
    return command;
}

}  // namespace lnkd
