// SPDX-License-Identifier: Apache-2.0
#include <sys/mman.h>

#include <ctime>

#include "aggregation/sla_stats_data.h"
#include "helpers.h"

// The input is a statistics file in which times are ages in ms, so that a small number is a record
// that counts.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    void* const file = mmap(nullptr, lnkd::kStatsFileSize, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    memcpy(file, data, std::min(size, lnkd::kStatsFileSize));
    // The header is as long as a record and stands in place of the first.
    auto* const records = static_cast<lnkd::StatsRecord*>(file);
    const auto now = static_cast<uint64_t>(time(nullptr)) * 1000;
    for (uint32_t i = 1; i <= lnkd::kStatsRecords; ++i)
        if (records[i].timestamp != 0)
            records[i].timestamp = now - records[i].timestamp;
    unsigned int count = 0;
    lnkd::SlaStatsData(file, size % 2 == 0).linkRateEstimate(&count, "wlan0");
    require(count < lnkd::kStatsRecords);
    return 0;
}
