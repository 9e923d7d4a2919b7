// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "aggregation/sla_stats_data.h"
#include "state/connection_marks.h"
#include "state/packet_filter.h"
#include "state/program.h"
#include "state/reading.h"
#include "state/route_netlink.h"
#include "state/routes.h"
#include "state/statistics.h"

namespace lnkd {
namespace {

TEST(FilterListing, BecomesChainsWithCountersInBothFlavoursOfTheTool) {
    const Reading<FilterTable> table = parseFilterTable(
            "# Warning: another table is present\n-P OUTPUT ACCEPT -c 9 99\n-N zelk_SLA\n-N empty\n"
            "-A OUTPUT -c 2175 198360 -j zelk_DVX_wapper\n"
            "-A OUTPUT -m comment --comment \"two words \\\" -c 3 4\" -j X -c 5 6\n"
            "-A zelk_SLA -p tcp -m statistic --probability 0.25 -c 18446744073709551615 0 -j Y\n"
            "-A zelk_SLA -j Z\n");
    ASSERT_EQ(table.problem, "");
    ASSERT_EQ(table.value.size(), 3U);
    const FilterChain& output = table.value.at("OUTPUT");
    const FilterChain& shares = table.value.at("zelk_SLA");
    ASSERT_EQ(output.size(), 2U);
    ASSERT_EQ(shares.size(), 2U);
    EXPECT_EQ(table.value.at("empty").size(), 0U);
    EXPECT_EQ(output[0].text(), "-j zelk_DVX_wapper");
    EXPECT_EQ(output[0].packets, 2175U);
    EXPECT_EQ(output[0].bytes, 198360U);
    EXPECT_EQ(output[1].valueOf("--comment"), "two words \" -c 3 4");
    EXPECT_EQ(output[1].packets, 5U);
    EXPECT_EQ(shares[0].packets, UINT64_MAX);
    EXPECT_EQ(shares[0].valueOf("--probability"), "0.25");
    EXPECT_EQ(shares[0].target(), "Y");
    EXPECT_EQ(shares[1].valueOf("Z"), "");
    const Reading<FilterTable> begun = parseFilterTable("-N known\n-A unknown -j X\n");
    EXPECT_TRUE(!begun.known() && begun.value.empty());
}

TEST(Program, IsRunBesideOthersAndKilledWithWhatItStartedWhenItsTimeIsOver) {
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    const ProgramLimits limits{std::chrono::milliseconds(1000), 10};
    const std::vector<ProgramResult> results = runPrograms(
            {
                    {"sh", "-c", "echo out; echo err >&2; exit 3"},
                    {"/bin/echo", "$HOME and;"},
                    {"/no/such program"},
                    {"sh", "-c", "kill -9 $$"},
                    {"cat"},  // nothing to read: ends at once
                    {"sh", "-c", "sleep 60 & echo hi; wait"},
                    {"sh", "-c", "exec >&- 2>&-; sleep 60"},
                    {"sh", "-c", "sleep 60 & echo $!"},  // what it leaves holds the pipe
            },
            limits);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(8));
    EXPECT_EQ(results[0].output + results[0].errors, "out\nerr\n");
    EXPECT_EQ(results[0].status, 3);
    EXPECT_EQ(results[0].complaint(), "err");
    EXPECT_EQ(results[1].output, "$HOME and;");
    EXPECT_TRUE(results[1].isCut && !results[1].succeeded());
    EXPECT_EQ(results[2].complaint(), "/no/such program: No such file or directory");
    EXPECT_EQ(results[3].status, 128 + 9);
    EXPECT_TRUE(results[4].succeeded());
    EXPECT_EQ(results[5].output, "hi\n");
    EXPECT_EQ(results[5].complaint(), "sh: did not end in time, killed");
    EXPECT_EQ(results[6].status, -1);
    EXPECT_EQ(results[7].problem, "sh: did not end in time, killed");
    const std::string left = "/proc/" + std::to_string(std::stoi(results[7].output)) + "/cmdline";
    while (readFile(left, 100).value != "" && Clock::now() - begin < std::chrono::seconds(8)) {
        std::this_thread::yield();
    }
    EXPECT_EQ(readFile(left, 100).value, "");
}

TEST(ConnectionTable, IsCountedByMarkWhereverItIsCut) {
    const std::string table =
            "ipv4 2 tcp 6 9 ESTABLISHED src=1.2.3.4 dport=80 [ASSURED] mark=90 zone=0 use=2\n"
            "ipv4     2 udp      17 9 src=1.2.3.4 sport=90 mark=0 use=2\n"
            "ipv6 10 tcp 6 9 CLOSE src=::1 secmark=7 mark=4294967295 use=2\nipv4 2 icmp no mark\n"
            "ipv4     2 tcp      6 119 TIME_WAIT src=1.2.3.4 mark=90 use=2\n";
    for (size_t size = 1; size <= table.size(); ++size) {
        MarkCounter counter;
        for (size_t at = 0; at < table.size(); at += size)
            counter.take(std::string_view(table).substr(at, size));
        std::string counts;
        for (const auto& [mark, count] : counter.counts())
            counts += std::to_string(mark) + ": " + std::to_string(count.live) + " of " +
                      std::to_string(count.all) + "; ";
        ASSERT_EQ(counts, "0: 2 of 2; 90: 1 of 2; 4294967295: 0 of 1; ") << size;
    }
    EXPECT_NE(countConnections("/no/such/table").problem, "");
}

// The kernel refuses a request for next hops with more than their own fixed part, and says so only
// where the dump ends.
TEST(RoutingDump, ThatFailsIsAProblemAndNotEmpty) {
    const auto problemOf = [](uint16_t request) {
        return dumpRouting(
                request, AF_INET, [] {}, [](const RouteMessage&) {});
    };
    EXPECT_EQ(problemOf(RTM_GETNEXTHOP), "routing (netlink): Invalid argument");
    EXPECT_EQ(problemOf(RTM_GETRULE), "");
}

TEST(File, IsReadToItsEndOrNotAtAll) {
    const Reading<std::string> name = readFile("/proc/self/comm", 64);
    EXPECT_TRUE(name.known() && !name.value.empty());
    const Reading<std::string> cut = readFile("/proc/self/comm", 1);
    EXPECT_TRUE(!cut.known() && cut.value.empty());
}

TEST(RoutingTableNames, AreThoseOfTheFileOrNumbers) {
    RoutingTables tables;
    tables.add("#\n 1001\twlan0 # first\n0x3ea  wlan1\n1003\nx broken\n1004 rmnet_data0\r\n");
    const std::pair<const char*, std::optional<uint32_t>> cases[] = {
            {"main", 254},          {"wlan0", 1001},    {"wlan1", 1002},
            {"rmnet_data0", 1004},  {"77", 77},         {"0x4d", 77},
            {"eth0", std::nullopt}, {"", std::nullopt}, {"broken", std::nullopt},
    };
    for (const auto& [name, number] : cases)
        EXPECT_EQ(tables.numberOf(name), number) << name;
    EXPECT_EQ(tables.nameOf(1002) + ' ' + tables.nameOf(9), "wlan1 9");
}

TEST(DefaultRoutes, OfATableAreOneOrTwoHalvesThatLeadSomewhere) {
    const DefaultRoute whole{1, 4, "", true, 0}, dead{2, 4, "", false, 0};
    const DefaultRoute low{3, 4, "", true, 1}, high{3, 4, "", true, 2};
    const std::vector<DefaultRoute> routes = {whole, dead, low};
    EXPECT_TRUE(hasDefaultRoute(routes, 1));
    EXPECT_FALSE(hasDefaultRoute(routes, 2));
    EXPECT_FALSE(hasDefaultRoute(routes, 3));
    EXPECT_TRUE(hasDefaultRoute({low, high}, 3));
}

// A statistics file whose newest record is in the slot before `writeIndex`, and the `count - 1`
// slots before that are full as well: 1000 bytes every 10 ms, until 5 ms before now.
std::string ring(int64_t now, uint32_t writeIndex, uint32_t count) {
    std::string file(kStatsFileSize, '\0');
    const StatsHeader header{kStatsMagic, 0, writeIndex, 0};
    memcpy(file.data(), &header, sizeof(header));
    for (uint32_t age = 1; age <= count; ++age) {
        const StatsRecord record{static_cast<uint64_t>(now + 5 - 10 * age), 1000, 0, kSampleRecord,
                                 0};
        const uint32_t slot = (writeIndex + kStatsRecords - age) % kStatsRecords;
        memcpy(&file[sizeof(header) + slot * sizeof(record)], &record, sizeof(record));
    }
    return file;
}

TEST(StatisticsFile, TellsTheBytesOfTheLastSecondAndTheAgeOfTheNewestRecord) {
    constexpr int64_t kNow = 1'700'000'000'000;
    struct Case {
        const char* name;
        std::string file;
        double rate;  // bit/s
        int64_t age;  // ms, -1 for none
    };
    std::string fast = ring(kNow, 3, kStatsRecords);
    for (uint32_t slot = 0; slot < kStatsRecords; ++slot) {  // all of them in half a second
        StatsRecord record;
        memcpy(&record, &fast[16 + slot * 16], 16);
        record.timestamp = kNow - (kNow - record.timestamp) / 25;
        memcpy(&fast[16 + slot * 16], &record, 16);
    }
    const Case cases[] = {
            {"wraps", ring(kNow, 3, 50), 400'000, 5},
            {"full", ring(kNow, 0, kStatsRecords), 800'000, 5},
            {"old", ring(kNow - 2000, 7, 50), 0, 2005},
            {"ahead of the clock", ring(kNow + 500, 7, 10), 80'000, -495},
            {"empty", ring(kNow, 0, 0), 0, -1},
            {"index beyond", ring(kNow, 0, 0).replace(8, 4, "\xff\xff\xff\xff"), 0, -1},
            {"faster than it can hold", fast, 1000.0 * kStatsRecords * 8000 / 511, 0},
    };
    for (const Case& c : cases) {
        const LinkStatistics result = measureStatistics(c.file, kNow);
        EXPECT_TRUE(result.isInitialised) << c.name;
        EXPECT_NEAR(result.bitsPerSecond, c.rate, c.rate / 100) << c.name;
        EXPECT_EQ(result.newestAgeMs.value_or(-1), c.age) << c.name;
    }
    EXPECT_FALSE(measureStatistics(std::string(kStatsFileSize, '\0'), kNow).isInitialised);
}

}  // namespace
}  // namespace lnkd
