// SPDX-License-Identifier: Apache-2.0
#include "status/status_command.h"

#include <chrono>
#include <cstdio>

#include "output/text.h"
#include "status/live_view.h"
#include "status/status_json.h"
#include "status/status_screen.h"
#include "status/watch.h"

namespace lnkd {

namespace {

using std::chrono::milliseconds;

constexpr int kWarningStatus = 1;
constexpr int kStoppedStatus = 3;
constexpr int kLeftoversStatus = 4;

constexpr int kShortestIntervalMs = 100;

int exitStatus(const Watch& watch) {
    switch (watch.picture().daemonState) {
        case DaemonState::kRunning:
            return watch.warnings().empty() && watch.seen().problems().empty() ? 0 : kWarningStatus;
        case DaemonState::kUnknown:
            return kWarningStatus;
        case DaemonState::kLeftovers:
            return kLeftoversStatus;
        case DaemonState::kStopped:
        case DaemonState::kDisabled:
            break;
    }
    return kStoppedStatus;
}

std::string textOf(const Watch& watch, bool isJson, const Terminal& terminal) {
    return isJson ? statusJson(watch.seen(), watch.picture(), watch.warnings())
                  : statusScreen(watch.seen(), watch.picture(), watch.warnings(), terminal);
}

int runStatus(const Arguments& arguments) {
    int intervalMs = 1000;
    const std::string interval = arguments.value("interval");
    if (arguments.has("interval") &&
        (!parseMilliseconds(interval, &intervalMs) || intervalMs < kShortestIntervalMs)) {
        return usageError("status", quoted(interval) + ": not milliseconds (100 to 86400000)");
    }
    if (arguments.has("log") && arguments.value("log").empty()) {
        return usageError("status", "--log: FILE is empty");
    }
    const Terminal terminal;
    const bool isJson = arguments.has("json");
    Watch watch(arguments.value("log"));
    if (arguments.has("watch")) {
        LiveView view(terminal, milliseconds(intervalMs));
        do {
            watch.look();
        } while (view.show(textOf(watch, isJson, terminal)));
        return 0;
    }
    watch.settle();
    std::fputs(textOf(watch, isJson, terminal).c_str(), stdout);
    return std::fflush(stdout) == 0 ? exitStatus(watch) : kWarningStatus;
}

}  // namespace

Subcommand statusCommand() {
    Subcommand command;
    command.name = "status";
    command.summary = "Shows what the daemon does, from the kernel and files.";
    command.options = {
            {"json", "", "for programs (status.schema.json)"},
            {"watch", "", "again and again, in place, until Ctrl-C"},
            {"interval", "MS", "between two looks of --watch (default 1000)"},
            {"log", "FILE", "the daemon's log, for RTT and LEVEL (default: found)"},
    };
    command.notes =
            "NEW      connections that left by the link since it became one\n"
            "STEERED  bytes that the rules marked for it (on a wide terminal)\n"
            "OPEN     tracked connections with its mark, NOW what it receives\n"
            "RTT      of the probes, averaged, while a game or a call runs; LEVEL 2 to 11,\n"
            "         higher is better, 1 failed; \"*\" is the link of the game or call\n"
            "\n"
            "What looks wrong is looked at again, 3 s at most, before it is a warning.\n"
            "Exit status: 0 all is well, 1 warnings, or something could not be read,\n"
            "2 usage, 3 no daemon runs, 4 none runs and one left rules behind.\n";
    command.run = runStatus;
    return command;
}

}  // namespace lnkd
