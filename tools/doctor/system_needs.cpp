// SPDX-License-Identifier: Apache-2.0
#include "doctor/system_needs.h"

#include <linux/capability.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "state/connection_marks.h"
#include "state/packet_filter.h"
#include "state/program.h"
#include "state/reading.h"

namespace lnkd {

namespace {

constexpr int kBuildYear = 2026;  // of this version: the phone's compiler knows no date
constexpr char kControlFile[] = "/proc/sla/config";
constexpr char kVoipStateFile[] = "/proc/sla/sla_voip_state";
constexpr char kSocketFolder[] = "/dev/socket";

// The version in what a tool prints: its first line, but "iproute2-6.1.0" of "ip utility,
// iproute2-6.1.0, libbpf 1.1.2".
std::string versionIn(const std::string& output) {
    constexpr std::string_view kIntroduction = "ip utility, ";
    std::string line = output.substr(0, output.find('\n'));
    if (line.compare(0, kIntroduction.size(), kIntroduction) != 0) {
        return line;
    }
    const std::string rest = line.substr(kIntroduction.size());
    return rest.substr(0, rest.find(','));
}

// A path that we may use in the way of `mode`, as access() takes it. What is not to be seen without
// root is not known.
Need pathNeed(const Need& need, const char* path, int mode, const std::string& found) {
    if (access(path, mode) == 0) {
        return need.met(found);
    }
    return errno == EACCES && geteuid() != 0 ? need.unknown(problemWith(path))
                                             : need.missing(problemWith(path));
}

}  // namespace

std::optional<bool> holdsCapability(int capability) {
    constexpr char kField[] = "\nCapEff:";
    const Reading<std::string> status = readFile("/proc/self/status", 65536);
    const size_t at = status.value.find(kField);
    if (!status.known() || at == std::string::npos) {
        return std::nullopt;
    }
    const uint64_t held = strtoull(status.value.c_str() + at + sizeof(kField) - 1, nullptr, 16);
    return (held >> static_cast<unsigned>(capability) & 1U) != 0;
}

Needs examineRights() {
    struct Capability {
        const char* name;
        int number;
        const char* without;
    };
    constexpr Capability kCapabilities[] = {
            {"NET_ADMIN", CAP_NET_ADMIN, "no rule, no route and no socket can be changed"},
            {"NET_RAW", CAP_NET_RAW, "the packet filter's tool and probes over a link may fail"},
    };
    const Need root{"rights", "root", false, "nothing of what follows works", "start it as root"};
    Needs needs = {geteuid() == 0 ? root.met("root")
                                  : root.missing("user " + std::to_string(geteuid()))};
    for (const auto& [name, number, without] : kCapabilities) {
        const Need need{"rights", name, false, without,
                        std::string("give it the capability ") + name};
        const std::optional<bool> held = holdsCapability(number);
        needs.push_back(!held.has_value() ? need.unknown("/proc/self/status cannot be read")
                        : *held           ? need.met(name)
                                          : need.missing(std::string("no ") + name));
    }
    return needs;
}

Needs examineTools() {
    const Need wanted[] = {
            {"tools", kPacketFilterTool, false, "no connection is steered",
             "install the tool, executable, and what it runs"},
            {"tools", kRoutingTool, false, "marked connections take the default route all the same",
             "install the tool, executable, and what it runs"},
    };
    const std::vector<ProgramResult> results =
            runPrograms({{kPacketFilterTool, "-V"}, {kRoutingTool, "-V"}});
    Needs needs;
    for (size_t i = 0; i < std::size(wanted); ++i) {
        const Need& need = wanted[i];
        if (access(need.thing.c_str(), X_OK) != 0) {
            needs.push_back(need.missing(problemWith(need.thing)));
        } else if (!results[i].succeeded()) {
            needs.push_back(need.missing("it does not work: " + results[i].complaint()));
        } else {
            needs.push_back(need.met(versionIn(results[i].output)));
        }
    }
    return needs;
}

Need examineSocketFolder() {
    const Need need{"control socket", "folder", false, "no client can reach the daemon",
                    std::string("make the folder ") + kSocketFolder};
    struct stat folder {};
    if (stat(kSocketFolder, &folder) != 0) {
        return need.missing(problemWith(kSocketFolder));
    }
    if (!S_ISDIR(folder.st_mode)) {
        return need.missing(std::string(kSocketFolder) + ": not a folder");
    }
    return pathNeed(need, kSocketFolder, W_OK, kSocketFolder);
}

Need examineClock(time_t now) {
    const Need need{"clock", "set", true,
                    "the limit on switches is measured with it, and jumps when it is set",
                    "set the clock before the daemon starts"};
    tm local{};
    gmtime_r(&now, &local);
    char text[32];
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M UTC", &local);
    return local.tm_year + 1900 >= kBuildYear ? need.met(text)
                                              : need.missing(std::string("not set: ") + text);
}

Needs examineConnectionTracking() {
    const Need tracking{"connections", "tracking", false, "no connection keeps its link",
                        "a kernel with CONFIG_NF_CONNTRACK"};
    const Need room{"connections", "room", false, "the kernel drops new connections",
                    "raise net.netfilter.nf_conntrack_max"};
    const Need table{"connections", "table file", true,
                     "the log says no numbers of connections, and status has none",
                     "a kernel with CONFIG_NF_CONNTRACK_PROCFS"};
    const Reading<TrackedConnections> tracked = readTrackedConnections();
    if (!tracked.known()) {
        return {tracking.missing(tracked.problem)};
    }
    const std::string count = std::to_string(tracked.value.count) + " of " +
                              std::to_string(tracked.value.limit) + " connections";
    Needs needs = {tracking.met("tracking"), tracked.value.count < tracked.value.limit
                                                     ? room.met(count)
                                                     : room.missing(count)};
    needs.push_back(pathNeed(table, kConnectionTable, R_OK, "table file"));
    return needs;
}

Needs examineModule() {
    const Need control{"module", "control file", false,
                       "no throughput is measured, all links count as idle",
                       "load the statistics module"};
    // A module may make it for the first call only, so its absence says nothing.
    const Need voip{"module", "VoIP state file", true,
                    "a call's probes go to the default address, not to its server",
                    "look again while a call runs"};
    Needs needs = {pathNeed(control, kControlFile, W_OK, kControlFile)};
    if (needs[0].state == NeedState::kOk) {
        needs.push_back(access(kVoipStateFile, R_OK) == 0
                                ? voip.met("VoIP state file")
                                : voip.unknown("not there; no call yet?"));
    }
    return needs;
}

}  // namespace lnkd
