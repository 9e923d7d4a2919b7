// SPDX-License-Identifier: Apache-2.0
#include "aggregation/sla_stats_data.h"

#include <sys/mman.h>
#include <sys/time.h>

#include "core/link_stats.h"
#include "core/parameters.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SlaStatsData"
#include "core/log.h"

namespace lnkd {

namespace {

uint32_t olderSlot(uint32_t slot) {
    return slot == 0 ? kStatsRecords - 1 : slot - 1;
}

// Wall clock, because that is what the module stamps its records with. The one millisecond more
// makes a record of this very millisecond older than now.
uint64_t wallClockMs() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000 + 1;
}

}  // namespace

void SlaStatsDataDeleter::operator()(SlaStatsData* reader) const {
    delete reader;
}

SlaStatsData::SlaStatsData(void* statsMapping, bool wlan) : statsBase(statsMapping), isWlan(wlan) {}

SlaStatsData::~SlaStatsData() {
    munmap(statsBase, kStatsFileSize);
}

const volatile StatsHeader* SlaStatsData::header() const {
    return static_cast<const volatile StatsHeader*>(statsBase);
}

const volatile StatsRecord& SlaStatsData::record(uint32_t slot) const {
    return reinterpret_cast<const volatile StatsRecord*>(header() + 1)[slot];
}

uint32_t SlaStatsData::linkRateEstimate(unsigned int* count, const char* /*name*/) {
    if (header()->magic != kStatsMagic) {
        LNKD_LOGE("SLA stat colletct is not ready");
        return 0;
    }
    if (count != nullptr) {
        *count = 0;
    }
    const uint64_t now = wallClockMs();
    const uint32_t writeIndex = header()->writeIndex;
    const uint32_t newest = writeIndex == 0 ? kStatsRecords - 1 : writeIndex - 1;
    if (newest >= kStatsRecords) {
        LNKD_LOGE("%s:Index(%u) out of bound!", isWlan ? "WLAN" : "WWAN", newest);
        return 0;
    }
    lastRecord = &record(newest);
    const Samples samples = collectSamples(newest, now);
    if (count != nullptr) {
        *count = samples.count;
    }
    const auto* parameters = Parameters::instance();
    if (samples.timeMs == 0 || (samples.timeMs < parameters->get(kMiniRateWindow) &&
                                samples.bytes <= Parameters::linkRateLimit)) {
        return 0;
    }
    return static_cast<uint32_t>(((samples.bytes * 8000) >> 10) / samples.timeMs);
}

SlaStatsData::Samples SlaStatsData::collectSamples(uint32_t newestSlot, uint64_t nowMs) const {
    const auto* parameters = Parameters::instance();
    const uint32_t staleInterval = parameters->get(kMiniStaleInterval);
    const uint32_t window = parameters->get(kIdealEstWindow);

    Samples samples;
    // A full ring has no empty slot to stop at; once around is all there is to see.
    uint32_t stepsLeft = kStatsRecords - 1;
    uint32_t current = newestSlot;
    while (stepsLeft > 0 && record(current).timestamp != 0) {
        const uint64_t timestamp = record(current).timestamp;
        if (nowMs > timestamp + staleInterval || samples.bytes >= Parameters::linkRateLimit) {
            break;
        }
        if (record(current).type != kSampleRecord || record(current).flag != 0) {
            current = olderSlot(current);
            --stepsLeft;
            continue;
        }
        uint32_t reference = current;
        if (!findReference(reference, stepsLeft)) {
            break;
        }
        // Both differences are of the low 32 bits on purpose: intervals are short, and a clock
        // that was set back must wrap, not trap.
        const uint32_t elapsed = static_cast<uint32_t>(timestamp) -
                                 static_cast<uint32_t>(record(reference).timestamp);
        const uint32_t total = samples.timeMs + elapsed;
        // Taking this sample would overshoot the window by more than leaving it falls short.
        if (total >= window && total - window > window - samples.timeMs) {
            break;
        }
        ++samples.count;
        samples.bytes += record(current).bytes;
        samples.timeMs = total;
        if (total >= window) {
            break;
        }
        current = reference;
    }
    return samples;
}

bool SlaStatsData::findReference(uint32_t& slot, uint32_t& stepsLeft) const {
    while (stepsLeft > 0) {
        slot = olderSlot(slot);
        --stepsLeft;
        if (record(slot).timestamp == 0) {
            return false;
        }
        if (record(slot).type != kIntermediateRecord) {
            return true;
        }
    }
    return false;
}

}  // namespace lnkd
