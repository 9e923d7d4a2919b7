// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <ctime>
#include <random>

#include "aggregation/sla_stats_data.h"
#include "aggregation/sla_stats_impl.h"
#include "core/parameters.h"

namespace lnkd {

// `count` equal records, each `gapMs` after the one before it.
struct Records {
    uint32_t count, gapMs, bytes;
    uint8_t type = kSampleRecord, flag = 0;
};

// A statistics file whose newest record, the last of `runs`, is `ageMs` old, or up to 1 s older.
static std::string ringFile(uint32_t writeIndex, int64_t ageMs, const std::vector<Records>& runs) {
    StatsRecord file[kStatsRecords + 1] = {};
    file[0] = {kStatsMagic, writeIndex, 0, 0, 0};  // the header is laid out alike
    int64_t time = std::time(nullptr) * 1000 - ageMs;
    uint32_t slot = writeIndex + kStatsRecords;
    for (auto run = runs.rbegin(); run != runs.rend(); ++run) {
        for (uint32_t i = 0; i < run->count; ++i, time -= static_cast<int32_t>(run->gapMs))
            file[1 + --slot % kStatsRecords] = {static_cast<uint64_t>(time), run->bytes, 0xFFFF,
                                                run->type, run->flag};
    }
    return {reinterpret_cast<const char*>(file), sizeof(file)};
}

TEST(LinkRate, ComesFromTheNewestSamplesThatFillTheWindow) {
    // Far from what the machine may lose between making a ring and reading it.
    Parameters::instance()->setValue("mini_stale_interval", "60000");
    const Records many{20, 100, 10000}, four{4, 100, 10000}, two{2, 100, 10000};
    const Records between{2, 30, 7, kIntermediateRecord}, newest{1, 100, 20000};
    const struct {
        const char *what, *estimate;  // "rate, samples"
        std::string file;
    } cases[] = {{"newest in slot 1", "937, 5", ringFile(2, 0, {many, newest})},
                 {"newest in the last slot", "937, 5", ringFile(0, 0, {many, newest})},
                 {"the same by its number", "937, 5", ringFile(kStatsRecords, 0, {many, newest})},
                 {"beyond the ring", "0, 0", ringFile(kStatsRecords + 1, 0, {many})},
                 {"far beyond the ring", "0, 0", ringFile(UINT32_MAX, 0, {many})},
                 {"not initialised", "0, 77", std::string(kStatsFileSize, '\1')},
                 {"never written", "0, 0", ringFile(3, 0, {})},
                 {"stale", "0, 0", ringFile(9, 70000, {many})},
                 {"from the future", "781, 5", ringFile(9, -90000, {many})},
                 {"overshoot above shortfall", "781, 4", ringFile(9, 0, {{2, 300, 9}, four})},
                 {"overshoot below shortfall", "568, 5", ringFile(9, 0, {{2, 150, 9}, four})},
                 {"overshoot equal to shortfall", "976, 1", ringFile(9, 0, {{2, 1000, 125000}})},
                 {"overshoot 1 ms above it", "0, 0", ringFile(9, 0, {{2, 1001, 125000}})},
                 {"intermediate", "9765, 1", ringFile(9, 0, {{1, 0, 9}, between, {1, 40, 125000}})},
                 {"flagged sample", "781, 3", ringFile(9, 0, {two, {1, 100, 9, 2, 1}, two})},
                 {"short, many bytes", "39062, 2", ringFile(9, 0, {{9, 20, 100000}})},
                 {"no time, many bytes", "0, 1", ringFile(9, 0, {{9, 0, 200000}})},
                 {"short, at the byte limit", "0, 2", ringFile(9, 0, {{9, 20, 51200}})},
                 {"short by 1 ms", "0, 1", ringFile(9, 0, {{1, 0, 9}, {1, 49, 60000}})},
                 {"just long enough", "9375, 1", ringFile(9, 0, {{1, 0, 9}, {1, 50, 60000}})},
                 {"bits beyond 32 bits", "67108863, 1", ringFile(9, 0, {{2, 500, UINT32_MAX}})},
                 {"clock set back", "0, 0", ringFile(9, 0, {{5, 100, 9}, {1, -100U, 9}})},
                 {"ring of one moment", "0, 1278", ringFile(9, 0, {{kStatsRecords, 0, 1}})},
                 {"ring of others", "0, 0", ringFile(9, 0, {{kStatsRecords, 0, 1, 9}})},
                 {"ring without reference", "0, 0", ringFile(9, 0, {{1278, 0, 1, 1}, {1, 0, 1}})}};
    for (const auto& c : cases) {
        void* const mapping = mmap(nullptr, kStatsFileSize, PROT_READ | PROT_WRITE,
                                   MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        c.file.copy(static_cast<char*>(mapping), kStatsFileSize);
        unsigned int count = 77;
        const uint32_t rate = SlaStatsData(mapping, true).linkRateEstimate(&count, "wlan0");
        EXPECT_EQ(std::to_string(rate) + ", " + std::to_string(count), c.estimate) << c.what;
    }
}

TEST(LinkRate, OfAnIdleLinkIsTheBestOfItsLastPasses) {
    Parameters* const p = Parameters::instance();
    linkHistory_t history;
    EXPECT_EQ(SlaStatsImpl::getMaxLinkRateFromHistory(history, 7, p), 7U) << "no memory";
    p->best_est_cache_size = 3;
    std::mt19937 random(1);
    uint32_t last[3] = {};
    for (int pass = 0; pass < 500; ++pass) {
        last[pass % 3] = static_cast<uint32_t>(random() % 4);
        EXPECT_EQ(SlaStatsImpl::getMaxLinkRateFromHistory(history, last[pass % 3], p),
                  *std::max_element(last, last + 3));
    }
}

// Compares with the policy once more, written from its prose and in double.
TEST(Ratios, OfAnyRatesFollowThePolicyAndAreWorthNewRulesAbove2Percent) {
    std::mt19937 random(20251124);
    LinkStatsMap links;
    InterfaceTable table;
    for (int pass = 0; pass < 20000 && !HasFailure(); ++pass) {
        for (char name = 'a'; name < 'e' && pass % 4 == 0; ++name) {
            const uint32_t limits[] = {1, 2, 900, 1700, 60000};
            const auto rate = static_cast<uint32_t>(random() % limits[random() % 5]);
            const bool metered = random() % 2 == 0;
            links[{name}].reset(new linkStatsWrapper_t{{name}, nullptr, {}, rate, 0, 0});
            table[{name}].reset(new InterfaceInfo_t{{}, {}, metered, false, false, 0, 0, {}, {}});
        }
        double sum[2] = {}, most = 0, wifis = 0, rest = 1, unused = 0, assigned = 0, change = 0;
        for (const auto& [name, link] : links) {
            link->linkRate += link->linkRate / static_cast<uint32_t>(1 + random() % 60);
            sum[table[name]->metered ? 1 : 0] += link->linkRate;
            most = std::max(most, table[name]->metered ? 0.0 : link->linkRate);
            wifis += table[name]->metered ? 0 : 1;
        }
        const bool help = sum[0] <= 1600, dominated = wifis > 1 && most > 0.95 * sum[0];
        std::map<std::string, double> previous, expected;
        for (const auto& [name, link] : links) {
            const double rate = link->linkRate;
            const double ofCell = sum[1] > 0 ? (1 - sum[0] / 1600) * rate / sum[1] : 0;
            const double ofWifi = rate / (wifis > 1 ? 3200 : 1600);
            const double spread = rate == most ? 0.9 : 0.1 / (wifis - 1);
            const double alone = dominated ? spread : rate / sum[0];
            const double part = !help ? alone : table[name]->metered ? ofCell : ofWifi;
            rest -= part;
            unused += part == 0 ? 1 : 0;
            expected[name] = help || !table[name]->metered ? part : 0;
            previous[name] = link->interfaceRatio;
        }
        const bool moved = SlaStatsImpl::calcSlaRatios(
                links, table, help ? SLA_CALC_WITH_METERED : SLA_CALC_UNMETERED_ONLY,
                static_cast<float>(sum[1]), static_cast<float>(sum[0]), static_cast<float>(most),
                false);
        for (const auto& [name, link] : links) {
            const double idle = table[name]->metered ? 0 : rest / wifis;
            if (link->linkRate == 0 && unused > 0 && rest > 1e-9)
                expected[name] = sum[0] + sum[1] > 0 ? rest / unused : idle;
            EXPECT_NEAR(link->interfaceRatio, expected[name], 1e-5) << sum[0] << ' ' << sum[1];
            assigned += link->interfaceRatio;
            change += std::abs(expected[name] - previous[name]) / 2;
        }
        EXPECT_LE(assigned, 1 + 1e-5);
        EXPECT_TRUE(moved == (change > 0.02) || std::abs(change - 0.02) < 1e-5) << change;
    }
}

}  // namespace lnkd
