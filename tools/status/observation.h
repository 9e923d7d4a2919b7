// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "state/connection_marks.h"
#include "state/daemon_process.h"
#include "state/packet_filter.h"
#include "state/policy_rules.h"
#include "state/routes.h"
#include "state/statistics.h"
#include "status/probe_results.h"

namespace lnkd {

// Everything that a status is made from, as it was read within some milliseconds.
struct Observation {
    std::chrono::steady_clock::time_point at;
    int64_t wallMs = 0;  // since the Unix epoch
    Reading<std::optional<DaemonProcess>> daemon;
    pid_t idleDaemon = 0;  // looked for only when nobody holds the lock
    PacketFilter filter;
    Reading<std::vector<PolicyRule>> policyRules;
    Reading<std::map<std::string, NetworkInterface>> interfaces;
    Reading<std::vector<DefaultRoute>> defaultRoutes;
    RoutingTables tables;
    Reading<ConnectionsByMark> connections;
    Reading<TrackedConnections> tracked;
    std::map<std::string, Reading<LinkStatistics>> statistics;  // of each link with a mark chain
    // Bytes that came in by a link with live connections in a short while, during which, and for
    // some seconds before it, its statistics got no record.
    std::map<std::string, uint64_t> receivedWithoutRecord;
    Reading<ProbeResults> probes;  // nothing, and no problem, while nothing is probed

    // What could not be read, a line each.
    std::vector<std::string> problems() const;
};

// Reads it. `log` names the daemon's log; empty: it is looked for.
Observation observe(const std::string& log);

}  // namespace lnkd
