// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <string>

#include "aggregation/sla_stats_data.h"
#include "aggregation/sla_stats_impl.h"
#include "core/parameters.h"
#include "rules/iptables_manager.h"

namespace {

std::atomic<size_t> allocations{0};

}  // namespace

// Counts every allocation of the program; the other forms of new and delete come here as well.
// Inlined, they would look to the compiler like a mismatch.
[[gnu::noinline]] void* operator new(size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* const memory = malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, size_t /*size*/) noexcept {
    free(memory);
}

namespace lnkd {
namespace {

constexpr int kReadableByAll = 0644;

uint64_t wallClockMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

// Makes every estimate walk the whole ring: neither its window nor its limit of bytes nor the age
// of a record is ever reached.
void walkWholeRings() {
    Parameters* const parameters = Parameters::instance();
    parameters->setValue("ideal_est_window", "1000000");
    parameters->setValue("mini_stale_interval", "100000000");
}

// A statistics file in a world's /proc/sla, full of samples of one byte, one a millisecond up to
// now. Null, with the reason in `state`, when that cannot be made: outside of a world.
void* fullRing(const std::string& interface, benchmark::State& state) {
    const std::string path = "/proc/sla/" + interface + "_mmap";
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kReadableByAll);
    void* base = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, kStatsFileSize) == 0) {
        base = mmap(nullptr, kStatsFileSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    close(fd);
    if (base == MAP_FAILED) {
        state.SkipWithError("no statistics file: run it with lab/phone --no-stats");
        return nullptr;
    }
    auto* const header = static_cast<StatsHeader*>(base);
    auto* const records = reinterpret_cast<StatsRecord*>(header + 1);
    const uint64_t start = wallClockMs() - kStatsRecords;
    for (uint32_t i = 0; i < kStatsRecords; ++i) {
        records[i] = {start + i, 1, 0, kSampleRecord, 0};
    }
    *header = {kStatsMagic, 0, 0, 0};
    return base;
}

double allocationsEach(size_t before, const benchmark::State& state) {
    return static_cast<double>(allocations - before) / static_cast<double>(state.iterations());
}

void rateEstimate(benchmark::State& state) {
    void* const ring = fullRing("estimate", state);
    if (ring == nullptr) {
        return;
    }
    walkWholeRings();
    SlaStatsData statistics(ring, true);
    unsigned int samples = 0;
    const size_t before = allocations;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(statistics.linkRateEstimate(&samples, "estimate"));
    }
    state.counters["allocations"] = allocationsEach(before, state);
    state.counters["samples"] = samples;
}
BENCHMARK(rateEstimate);

// The links are those of vendor.sla.ifaces. Their rates stand still, so only the first pass, which
// is not measured, makes rules.
void ratioPass(benchmark::State& state) {
    const InterfaceSnapshot table = Parameters::instance()->interfaces();
    for (const auto& [name, record] : *table) {
        void* const ring = fullRing(name, state);
        if (ring == nullptr) {
            return;
        }
        munmap(ring, kStatsFileSize);
    }
    walkWholeRings();
    IptablesManager::instance();
    SlaStatsImpl* const aggregation = SlaStatsImpl::instance();
    aggregation->enableSLA(true);
    aggregation->evalAndSetSLAInterfaceRatio();
    const size_t before = allocations;
    for ([[maybe_unused]] auto _ : state) {
        aggregation->evalAndSetSLAInterfaceRatio();
    }
    state.counters["allocations"] = allocationsEach(before, state);
    state.counters["links"] = static_cast<double>(table->size());
}
BENCHMARK(ratioPass);

}  // namespace
}  // namespace lnkd
