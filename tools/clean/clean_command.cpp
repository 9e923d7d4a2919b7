// SPDX-License-Identifier: Apache-2.0
#include "clean/clean_command.h"

#include <unistd.h>

#include <cstdio>

#include "clean/leavings.h"
#include "clean/running_commands.h"
#include "core/single_instance.h"
#include "core/text_values.h"
#include "output/terminal.h"
#include "output/text.h"
#include "state/daemon_process.h"
#include "state/program.h"

namespace lnkd {

namespace {

constexpr int kNothingLeft = 0;
constexpr int kSomethingLeft = 1;
constexpr int kDaemonRuns = 3;

int complain(const std::string& what, int status) {
    std::fprintf(stderr, "lnkdctl clean: %s\n", what.c_str());
    return status;
}

int refuseFor(const DaemonProcess& daemon) {
    return complain("the daemon runs (process " + std::to_string(daemon.pid) +
                            "): nothing is removed; its own end removes its rules",
                    kDaemonRuns);
}

// False when the kernel's state cannot be read, with the reason in `problem`.
bool readLeavings(const std::set<uint32_t>& marks, Leavings* leavings, std::string* problem) {
    const PacketFilter filter = readPacketFilter();
    const Reading<std::vector<PolicyRule>> rules = readPolicyRules();
    for (const std::string* found : {&filter.mangle.problem, &filter.nat.problem, &rules.problem}) {
        if (!found->empty()) {
            *problem = *found;
            return false;
        }
    }
    *leavings = findLeavings(filter.mangle.value, filter.nat.value, rules.value,
                             RoutingTables::read(), marks);
    return true;
}

void printForeign(const Leavings& leavings) {
    for (const std::string& rule : leavings.foreignRules) {
        std::printf("left alone: %s; not a mark of lnkd's, --mark says that it is\n",
                    printable(rule).c_str());
    }
}

int show(const std::set<uint32_t>& marks) {
    Leavings leavings;
    std::string problem;
    if (!readLeavings(marks, &leavings, &problem)) {
        return complain(problem, kSomethingLeft);
    }
    for (const Removal& removal : leavings.removals) {
        if (!removal.what.empty()) {
            std::printf("to remove: %s\n", printable(removal.what).c_str());
        }
    }
    printForeign(leavings);
    std::fputs(leavings.removals.empty() ? "Nothing of lnkd's is left.\n"
                                         : "\"lnkdctl clean\" removes it.\n",
               stdout);
    return leavings.removals.empty() ? kNothingLeft : kSomethingLeft;
}

int remove(const std::set<uint32_t>& marks) {
    for (const pid_t pid : waitForCommands()) {
        complain("a command of the daemon's still runs (process " + std::to_string(pid) +
                         "); what it does comes after this",
                 0);
    }
    Leavings leavings;
    std::string problem;
    if (!readLeavings(marks, &leavings, &problem)) {
        return complain(problem, kSomethingLeft);
    }
    for (const Removal& removal : leavings.removals) {
        const std::string complaint = runProgram(removal.words).complaint();
        if (!complaint.empty()) {
            complain((removal.what.empty() ? removal.words.back() : removal.what) + ": " +
                             printable(complaint),
                     0);
        } else if (!removal.what.empty()) {
            std::printf("removed: %s\n", printable(removal.what).c_str());
        }
    }
    printForeign(leavings);
    // What is left is what the kernel says, not what the commands said.
    if (!readLeavings(marks, &leavings, &problem)) {
        return complain(problem, kSomethingLeft);
    }
    if (!leavings.removals.empty()) {
        return complain(std::to_string(leavings.removals.size()) +
                                " things are left; \"lnkdctl clean --dry-run\" lists them",
                        kSomethingLeft);
    }
    std::puts("Nothing of lnkd's is left.");
    return kNothingLeft;
}

int runClean(const Arguments& arguments) {
    std::set<uint32_t> marks;
    if (arguments.has("mark")) {
        for (const std::string& text : splitList(arguments.value("mark"))) {
            const auto mark = parseFwmark(text);
            if (!mark.has_value() || *mark == 0) {
                return usageError("clean", quoted(text) +
                                                   ": not a mark (decimal, or hexadecimal after "
                                                   "0x, not 0)");
            }
            marks.insert(*mark);
        }
    }
    if (geteuid() != 0) {
        return complain("only root can see and remove what is left", kSomethingLeft);
    }
    const Reading<std::optional<DaemonProcess>> daemon = findDaemon();
    if (daemon.value.has_value()) {
        return refuseFor(*daemon.value);
    }
    if (arguments.has("dry-run")) {
        if (!daemon.known()) {
            complain("cannot tell whether the daemon runs: " + daemon.problem, 0);
        }
        return show(marks);
    }
    // The daemon's own lock, kept to the end: none can start over what is just being removed.
    android::base::unique_fd lock;
    switch (takeInstanceLock(lock)) {
        case InstanceLock::kTaken:
            return remove(marks);
        case InstanceLock::kHeld:
            return complain((daemon.known() ? "a daemon has just started" : daemon.problem) +
                                    ": nothing is removed",
                            kDaemonRuns);
        case InstanceLock::kUnavailable:
            break;
    }
    return complain("cannot tell whether the daemon runs, so nothing is removed: " + daemon.problem,
                    kSomethingLeft);
}

}  // namespace

Subcommand cleanCommand() {
    Subcommand command;
    command.name = "clean";
    command.summary = "Removes what a killed daemon left in the packet filter and the routing.";
    command.options = {
            {"dry-run", "", "show it, remove nothing"},
            {"mark", "MARKS", "further marks that the configuration gave to links"},
    };
    command.notes =
            "Chains whose names begin with \"zelk_\", what leads to them, and the policy\n"
            "rules of priority 30000 with a mark of the daemon's. Not while a daemon runs.\n"
            "\n"
            "Exit status: 0 nothing is left, 1 something is, or that cannot be told,\n"
            "2 usage, 3 the daemon runs, or another clean.\n";
    command.run = runClean;
    return command;
}

}  // namespace lnkd
