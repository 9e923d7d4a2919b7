// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>

namespace lnkd {

class SlaStatsData;

// Defined with the reader, whose type is complete there only.
struct SlaStatsDataDeleter {
    void operator()(SlaStatsData* reader) const;
};

// The last rate estimates of a link, in kbit/s.
struct linkHistory_t {
    std::deque<uint32_t> rates;  // oldest at the front
    uint32_t maxRate = 0;        // the largest of them
};

// What aggregation knows about one link. It stands here, below both, because the engine writes it
// and the rules read it.
struct linkStatsWrapper_t {
    char interfaceName[128] = {};
    // Reader of the kernel's statistics; null when their file could not be mapped.
    std::unique_ptr<SlaStatsData, SlaStatsDataDeleter> statsData;
    linkHistory_t history;
    uint32_t linkRate = 0;     // kbit/s, 1 kbit = 1024 bits
    uint32_t sampleCount = 0;  // records that the last estimate used
    float interfaceRatio = 0;  // share of new connections, 0.0 to 1.0
};

// The links by interface name, in byte order of the names.
using LinkStatsMap = std::map<std::string, std::unique_ptr<linkStatsWrapper_t>>;

}  // namespace lnkd
