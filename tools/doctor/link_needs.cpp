// SPDX-License-Identifier: Apache-2.0
#include "doctor/link_needs.h"

#include <cutils/properties.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/text_values.h"
#include "doctor/probe.h"
#include "state/chain_names.h"
#include "state/daemon_process.h"
#include "state/packet_filter.h"
#include "state/routes.h"
#include "state/statistics.h"

namespace lnkd {

namespace {

// What is asked of the kernel once, for all links.
struct Surroundings {
    Reading<std::map<std::string, NetworkInterface>> interfaces = readInterfaces();
    Reading<std::vector<DefaultRoute>> routes = readDefaultRoutes();
    RoutingTables tables = RoutingTables::read();
    bool daemonRuns = findDaemon().value.has_value();
};

Need interfaceOf(const std::string& link, const Surroundings& around) {
    const Need need{"link " + link, "interface", false, "the link takes no part",
                    "bring it up, or leave it out of the list that the daemon is sent"};
    if (!around.interfaces.known()) {
        return need.unknown(around.interfaces.problem);
    }
    const auto found = around.interfaces.value.find(link);
    if (found == around.interfaces.value.end()) {
        return need.missing("no such interface");
    }
    if (!found->second.isUp || !found->second.hasCarrier) {
        return need.missing(found->second.isUp ? "nothing at its other end" : "not up");
    }
    return found->second.addresses.empty() ? need.missing("up, without an IPv4 address")
                                           : need.met("up");
}

// The name of the link's table, and the way out in it.
Needs tableOf(const std::string& link, const Surroundings& around) {
    const Need name{"link " + link, "table", false, "no connection can be sent over the link",
                    "give a routing table the name " + link + " (/etc/iproute2/rt_tables)"};
    const Need route{"link " + link, "route", false,
                     "what is sent over the link takes another, or none",
                     "ip route add default via GATEWAY dev " + link + " table " + link};
    const std::optional<uint32_t> number = around.tables.numberOf(link);
    if (!number.has_value()) {
        return {name.missing("no routing table has its name")};
    }
    Needs needs = {name.met("table " + std::to_string(*number))};
    if (!around.routes.known()) {
        needs.push_back(route.unknown(around.routes.problem));
    } else if (hasDefaultRoute(around.routes.value, *number)) {
        needs.push_back(route.met("route"));
    } else {
        needs.push_back(route.missing("no default route in table " + link));
    }
    return needs;
}

Need statisticsOf(const std::string& link, const Surroundings& around) {
    const Need need{"link " + link, "statistics", false, "the link counts as idle",
                    "load the statistics module; it makes the file"};
    const Reading<LinkStatistics> statistics = readStatistics(link);
    if (statistics.known()) {
        return need.met("statistics");
    }
    if (around.daemonRuns) {
        return need.missing(statistics.problem);
    }
    Need later = need.unknown("no statistics before the daemon has asked for them");
    later.isOptional = true;
    return later;
}

Need reachNeed(const std::string& link, const ProbeTarget& target, const Reach& reach,
               bool hasRoute) {
    const Need need{"link " + link, "probe target", false,
                    "link selection takes the link for a failed one",
                    "see that " + target.server + " can be reached over it, or set rtt_server"};
    const std::string name = target.server + ':' + std::to_string(target.port);
    if (reach.connectedAfterMs.has_value()) {
        const int64_t ms = *reach.connectedAfterMs;
        return need.met(target.server + " in " + (ms == 0 ? "<1" : std::to_string(ms)) + " ms");
    }
    if (!hasRoute) {
        return need.unknown("no way to " + name);
    }
    return need.missing(name + ": " +
                        (reach.error == ETIMEDOUT
                                 ? "no answer in " + std::to_string(kProbeDeadlineMs) + " ms"
                                 : std::string(strerror(reach.error))));
}

bool areMet(const Needs& needs) {
    return std::all_of(needs.begin(), needs.end(),
                       [](const Need& need) { return need.state == NeedState::kOk; });
}

}  // namespace

std::vector<std::string> knownLinks() {
    std::vector<std::string> names = linksOf(readPacketFilter().mangle.value);
    char property[PROPERTY_VALUE_MAX];
    property_get("vendor.sla.ifaces", property, "");
    const std::vector<std::string> atStart = splitList(property);
    names.insert(names.end(), atStart.begin(), atStart.end());

    std::vector<std::string> links;
    for (const std::string& name : names) {
        if (isInterfaceName(name) && std::find(links.begin(), links.end(), name) == links.end()) {
            links.push_back(name);
        }
    }
    if (links.empty()) {
        for (const auto& [name, interface] : readInterfaces().value) {
            if (hasPrefix(name, "wlan") || isCellularName(name)) {
                links.push_back(name);
            }
        }
    }
    return links;
}

Needs examineLinks(const std::vector<std::string>& links, bool withProbe) {
    const Surroundings around;
    const ProbeTarget target = configuredProbeTarget();
    const std::vector<Reach> reached =
            withProbe ? reachOver(links, target) : std::vector<Reach>(links.size());
    Needs all;
    if (links.empty()) {
        const Need need{"links", "names", false, "there is nothing to choose from",
                        "set vendor.sla.ifaces, or name them with --links"};
        all.push_back(need.missing("no interface has the name of a link"));
    }
    for (size_t i = 0; i < links.size(); ++i) {
        Needs needs = {interfaceOf(links[i], around)};
        if (needs[0].state == NeedState::kOk) {
            const Needs table = tableOf(links[i], around);
            needs.insert(needs.end(), table.begin(), table.end());
            needs.push_back(statisticsOf(links[i], around));
            if (withProbe) {
                needs.push_back(reachNeed(links[i], target, reached[i], areMet(table)));
            }
        }
        all.insert(all.end(), needs.begin(), needs.end());
    }
    return all;
}

}  // namespace lnkd
