// SPDX-License-Identifier: Apache-2.0
#include "status/observation.h"

#include <algorithm>
#include <thread>

#include "core/text_values.h"
#include "state/chain_names.h"

namespace lnkd {

namespace {

constexpr int64_t kStillMs = 3000;
constexpr std::chrono::milliseconds kStillLook(40);

int64_t wallClockMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// Whether the statistics of a link have got no record for long.
bool areStill(const Reading<LinkStatistics>& statistics) {
    return statistics.known() && statistics.value.isInitialised &&
           statistics.value.newestAgeMs.value_or(INT64_MAX) > kStillMs;
}

// An idle link gets no record, so what came in is looked at twice, where anything is open.
void lookForStillStatistics(Observation* seen) {
    const bool areAnyStill = std::any_of(seen->statistics.begin(), seen->statistics.end(),
                                         [](const auto& entry) { return areStill(entry.second); });
    const bool isAnyOpen = std::any_of(
            seen->connections.value.begin(), seen->connections.value.end(),
            [](const auto& entry) { return entry.first != 0 && entry.second.live > 0; });
    if (!areAnyStill || !isAnyOpen) {
        return;
    }
    const auto begin = readInterfaces().value;
    std::this_thread::sleep_for(kStillLook);
    for (const auto& [name, now] : readInterfaces().value) {
        const auto before = begin.find(name);
        const auto statistics = seen->statistics.find(name);
        if (before != begin.end() && before->second.receivedBytes < now.receivedBytes &&
            statistics != seen->statistics.end() && areStill(statistics->second) &&
            areStill(readStatistics(name))) {
            seen->receivedWithoutRecord[name] = now.receivedBytes - before->second.receivedBytes;
        }
    }
}

// Whether a game or a call runs, as the chains tell.
bool isSelecting(const FilterTable& mangle) {
    const auto first = mangle.lower_bound(kSelectionUidPrefix);
    return first != mangle.end() && hasPrefix(first->first, kSelectionUidPrefix);
}

}  // namespace

std::vector<std::string> Observation::problems() const {
    std::vector<std::string> all;
    for (const std::string& problem :
         {daemon.problem, filter.mangle.problem, filter.nat.problem, policyRules.problem,
          interfaces.problem, defaultRoutes.problem, connections.problem, tracked.problem,
          probes.problem}) {
        if (!problem.empty()) {
            all.push_back(problem);
        }
    }
    return all;
}

Observation observe(const std::string& log) {
    Observation seen;
    seen.at = std::chrono::steady_clock::now();
    seen.wallMs = wallClockMs();
    seen.daemon = findDaemon();
    if (seen.daemon.known() && !seen.daemon.value.has_value()) {
        seen.idleDaemon = findIdleDaemon();
    }
    seen.filter = readPacketFilter();
    seen.policyRules = readPolicyRules();
    seen.interfaces = readInterfaces();
    seen.defaultRoutes = readDefaultRoutes();
    seen.tables = RoutingTables::read();
    for (const std::string& link : linksOf(seen.filter.mangle.value)) {
        seen.statistics[link] = readStatistics(link);
    }
    seen.connections = countConnections();
    seen.tracked = readTrackedConnections();
    lookForStillStatistics(&seen);
    // A log that is named is opened in any case, so that a wrong name is told at once.
    const bool areProbed = isSelecting(seen.filter.mangle.value);
    if (areProbed || !log.empty()) {
        seen.probes = readProbeResults(log, seen.daemon.value);
        seen.probes.value = areProbed ? seen.probes.value : ProbeResults{};
    }
    return seen;
}

}  // namespace lnkd
