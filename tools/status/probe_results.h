// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "state/daemon_process.h"
#include "state/reading.h"

namespace lnkd {

// What the daemon's log last said about a link that is probed.
struct ProbeResult {
    std::optional<int32_t> rttMs;  // averaged, as the level follows it
    std::optional<int32_t> level;  // 0 not rated yet, 1 failed, 2 to 11, higher is better
    bool hasFailed = false;        // no answer for some probes
};

struct ProbeResults {
    std::map<std::string, ProbeResult> links;
    // Choices of a link since one last came or went, as far back as the log was read. A pass of the
    // main loop deals the shares, then chooses: two choices have at least one deal between them.
    int choices = 0;
};

// Reads the end of the daemon's log: of the file that is named, or that the daemon writes to, or on
// the phone of the system's log. Nothing, and no problem, when there is none of them.
Reading<ProbeResults> readProbeResults(const std::string& file,
                                       const std::optional<DaemonProcess>& daemon);

// What the lines of one process say; 0: of any.
ProbeResults probeResultsOf(std::string_view log, pid_t pid);

}  // namespace lnkd
