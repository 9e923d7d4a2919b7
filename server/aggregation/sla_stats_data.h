// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace lnkd {

// The statistics file of one interface, as the kernel module writes it: a header and a ring of
// records, little-endian, 20480 bytes. The module writes while we read; each field is read once
// per use.
constexpr size_t kStatsFileSize = 20480;      // bytes
constexpr uint32_t kStatsRecords = 1279;      // slots of the ring
constexpr uint32_t kStatsMagic = 0x686A7379;  // an initialised file

struct StatsHeader {
    uint32_t magic;
    uint32_t reserved0;
    uint32_t writeIndex;  // 1 + slot of the newest record, 0 when that is the last slot
    uint32_t reserved1;
};

struct StatsRecord {
    uint64_t timestamp;  // ms since the Unix epoch, 0 for a slot never written
    uint32_t bytes;
    uint16_t reserved;
    uint8_t type;  // a StatsRecordType, or neither
    uint8_t flag;  // a sample counts only when this is 0
};

enum StatsRecordType : uint8_t {
    kIntermediateRecord = 1,
    kSampleRecord = 2,
};

static_assert(sizeof(StatsHeader) == 16 && offsetof(StatsHeader, writeIndex) == 8);
static_assert(sizeof(StatsRecord) == 16 && offsetof(StatsRecord, bytes) == 8);
static_assert(offsetof(StatsRecord, type) == 14 && offsetof(StatsRecord, flag) == 15);
static_assert(sizeof(StatsHeader) + kStatsRecords * sizeof(StatsRecord) == kStatsFileSize);

// Reader of one interface's statistics. Owns its mapping. Not thread-safe: its users hold
// statsMutex.
class SlaStatsData {
  public:
    // Takes over `statsBase`, a mapping of kStatsFileSize bytes. `isWlan` only tells which kind
    // of link an error message speaks of.
    SlaStatsData(void* statsBase, bool isWlan);
    ~SlaStatsData();
    SlaStatsData(const SlaStatsData&) = delete;
    SlaStatsData& operator=(const SlaStatsData&) = delete;

    // Estimates how fast the interface moved data just now, in kbit/s with 1 kbit = 1024 bits.
    //
    // Walks from the newest record to older ones and pairs each sample with the record before it,
    // intermediate ones skipped, until it has seen about ideal_est_window ms of samples or
    // linkRateLimit bytes, or meets a record older than mini_stale_interval or a slot never
    // written. The result is 0 when that covered neither mini_rate_window ms nor more than
    // linkRateLimit bytes, and when the file cannot be used. `count`, when not null, receives the
    // number of samples used; a file that the module has not initialised leaves it as it was.
    // `name` is the interface's name, for callers that trace.
    uint32_t linkRateEstimate(unsigned int* count, const char* name);

  private:
    // Sums of a walk over the ring.
    struct Samples {
        uint32_t timeMs = 0;
        uint64_t bytes = 0;
        unsigned int count = 0;
    };

    Samples collectSamples(uint32_t newestSlot, uint64_t nowMs) const;

    // The slot that a sample's time counts from, its walk bounded by `stepsLeft`; false when
    // there is none.
    bool findReference(uint32_t& slot, uint32_t& stepsLeft) const;

    const volatile StatsHeader* header() const;
    const volatile StatsRecord& record(uint32_t slot) const;

    void* const statsBase;
    const bool isWlan;
    const volatile StatsRecord* lastRecord = nullptr;  // newest, as the last estimate found it
};

}  // namespace lnkd
