// SPDX-License-Identifier: Apache-2.0
#include "status/warnings.h"

#include "output/text.h"

namespace lnkd {

namespace {

// A link that receives so much between two looks is not idle.
constexpr uint64_t kBusyBytes = 8192;

// A table that is nearly full drops new connections in every burst.
constexpr int64_t kFullPercent = 95;

void checkStatistics(const Observation& seen, std::vector<Warning>* warnings) {
    constexpr char kMeaning[] =
            ": lnkd takes the link for idle, its share does not follow its speed";
    for (const auto& [link, statistics] : seen.statistics) {
        if (!statistics.known()) {
            warnings->push_back(
                    {"statistics-missing", link,
                     "no statistics of " + link + " (" + statistics.problem + ")" + kMeaning});
            continue;
        }
        if (!statistics.value.isInitialised) {
            warnings->push_back({"statistics-missing", link,
                                 "the module does not write the statistics of " + link + kMeaning});
            continue;
        }
        const auto received = seen.receivedWithoutRecord.find(link);
        if (received != seen.receivedWithoutRecord.end() && received->second > kBusyBytes) {
            warnings->push_back(
                    {"statistics-still", link,
                     "the statistics of " + link + " stand still while it receives" + kMeaning});
        }
    }
}

void checkMarks(const Observation& seen, const Picture& picture, std::vector<Warning>* warnings) {
    if (!seen.policyRules.known()) {
        return;
    }
    for (const auto& [mark, count] : seen.connections.value) {
        bool isKnown = mark == 0 || count.live == 0;
        for (const PolicyRule& rule : seen.policyRules.value) {
            isKnown = isKnown || (rule.mask != 0 && (mark & rule.mask) == rule.mark);
        }
        for (const LinkPicture& link : picture.links) {
            isKnown = isKnown || link.mark == mark;  // its rule is missed by the link
        }
        if (!isKnown) {
            warnings->push_back({"mark-unknown", hexadecimal(mark),
                                 countOf(count.live, "connection") + " with mark " +
                                         hexadecimal(mark) +
                                         ", which no policy rule knows (any more): their packets "
                                         "take the default route, whatever link they began on"});
        }
    }
}

void checkTracking(const Observation& seen, std::vector<Warning>* warnings) {
    const TrackedConnections& tracked = seen.tracked.value;
    if (!seen.tracked.known() || tracked.limit <= 0 ||
        tracked.count * 100 < tracked.limit * kFullPercent) {
        return;
    }
    warnings->push_back({"tracking-full", "nf_conntrack",
                         std::to_string(tracked.count) + " of " + std::to_string(tracked.limit) +
                                 " connections are tracked: the kernel drops new ones when the "
                                 "table is full (net.netfilter.nf_conntrack_max)",
                         std::chrono::milliseconds(0)});
}

}  // namespace

std::vector<Warning> findWarnings(const Observation& seen, const Picture& picture) {
    std::vector<Warning> warnings;
    if (picture.daemonState != DaemonState::kRunning) {
        return warnings;
    }
    if (seen.filter.mangle.known() && seen.filter.nat.known()) {
        findChainWarnings(seen, picture, &warnings);
    }
    findRoutingWarnings(seen, picture, &warnings);
    checkStatistics(seen, &warnings);
    checkMarks(seen, picture, &warnings);
    checkTracking(seen, &warnings);
    return warnings;
}

}  // namespace lnkd
