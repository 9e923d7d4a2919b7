// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "state/reading.h"

namespace lnkd {

// What the statistics of a link tell at one moment.
struct LinkStatistics {
    bool isInitialised = false;          // the module has begun to write the file
    double bitsPerSecond = 0;            // received in the last second
    std::optional<int64_t> newestAgeMs;  // of the newest record; none when there is none
};

// Where the module publishes the statistics of a link.
std::string statisticsPath(const std::string& link);

// Reads them without making the file, unlike the daemon. A file shorter than its format is a
// problem.
Reading<LinkStatistics> readStatistics(const std::string& link);

// The same for the bytes of such a file, as many as its format has, at a moment (ms since the Unix
// epoch).
LinkStatistics measureStatistics(std::string_view file, int64_t nowMs);

}  // namespace lnkd
