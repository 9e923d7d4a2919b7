// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/parameters.h"

namespace lnkd {

// How a link's way to the probe target is.
struct Reach {
    std::optional<int64_t> connectedAfterMs;
    int error = 0;  // errno value; ETIMEDOUT when nobody has answered in time
};

// A link that takes longer to connect is as bad as none to the daemon.
constexpr int kProbeDeadlineMs = 500;

// Connects to a target over each link at once, as the daemon's probes do; nothing is sent. Ends
// when the deadline is over at the latest. In the order of the links.
std::vector<Reach> reachOver(const std::vector<std::string>& links, const ProbeTarget& target);

// What the daemon probes before its first game or call: the configuration file says, or the
// default.
ProbeTarget configuredProbeTarget();

}  // namespace lnkd
