// SPDX-License-Identifier: Apache-2.0
//
// Downloads in finite parts over links that are no more than arithmetic, dealt by the daemon's own
// estimates and shares: which configuration comes near the true ratio, and how steadily?
//
//     share_simulation [links=20:5,8:10,12:25] [metered=1] [falls=0] [KEY=VALUE...]
//
// A link is its Mbit/s and its delay in ms each way: wlan0, wlan1 and cellular. With falls=1 wlan0
// falls to a tenth when half has come. Any other key is the daemon's. Prints, for 6, 12 and 24
// connections at a time: the median rate in Mbit/s and its quartiles, each link's part of the
// connections, and how many times the rules were rebuilt.
#include <sys/mman.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "aggregation/sla_stats_data.h"
#include "aggregation/sla_stats_impl.h"
#include "core/link_stats.h"
#include "core/parameters.h"

namespace {

uint64_t virtualNowMs = 0;

}  // namespace

// The estimates ask this for the age of a record: the simulation's clock in place of the wall's.
extern "C" int gettimeofday(timeval* now, void* /*zone*/) noexcept {
    now->tv_sec = static_cast<time_t>(virtualNowMs / 1000);
    now->tv_usec = static_cast<suseconds_t>(virtualNowMs % 1000 * 1000);
    return 0;
}

namespace lnkd {
namespace {

constexpr int kParts = 240;
constexpr double kPartBytes = 125000;
constexpr double kPayload = 0.965;  // of a link's rate
constexpr int kRuns = 99;
constexpr uint64_t kTickMs = 2;      // of the statistics
constexpr uint64_t kSilenceMs = 30;  // after it, a record is only a reference
constexpr uint64_t kRuleMs = 20;     // that one rule takes
constexpr uint64_t kLongestMs = 120000;
constexpr int kReference = 0;

struct Settings {
    std::array<double, 3> mbit{20, 8, 12};
    std::array<double, 3> delayMs{5, 10, 25};
    bool metered = true;
    bool falls = false;
};

struct Part {
    uint64_t movesFrom;  // ms
    double left;         // bytes
};

// A link, the parts on it, and what the module and the daemon know of it.
class Line {
  public:
    Line(const char* name, double mbit, double delayMs, bool wlan)
        : bytesPerMs(mbit * 125),
          silenceMs(static_cast<uint64_t>(4 * delayMs)),
          m_file(mmap(nullptr, kStatsFileSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                      -1, 0)) {
        std::snprintf(stats.interfaceName, sizeof stats.interfaceName, "%s", name);
        stats.statsData.reset(new SlaStatsData(m_file, wlan));
        header()->magic = kStatsMagic;
    }

    // One ms of work; returns how many parts are through.
    int work() {
        const auto busy =
                static_cast<double>(std::count_if(parts.begin(), parts.end(), [](const Part& part) {
                    return part.movesFrom <= virtualNowMs;
                }));
        if (busy > 0) {
            for (Part& part : parts) {
                if (part.movesFrom <= virtualNowMs) {
                    part.left -= bytesPerMs * kPayload / busy;
                }
            }
            m_unwritten += bytesPerMs;
        }
        const auto end = std::remove_if(parts.begin(), parts.end(),
                                        [](const Part& part) { return part.left <= 0; });
        const auto through = static_cast<int>(parts.end() - end);
        parts.erase(end, parts.end());
        if (virtualNowMs % kTickMs == 0 && m_unwritten >= 1) {
            record();
        }
        return through;
    }

    // As a pass of the daemon's main loop does it.
    void measure(bool metered) {
        const Parameters& parameters = *Parameters::instance();
        uint32_t rate = stats.statsData->linkRateEstimate(&stats.sampleCount, stats.interfaceName);
        if (stats.sampleCount < parameters.estimate_pack_num ||
            (metered && rate < parameters.get(kWanThreshold))) {
            rate = 0;
        }
        const uint32_t remembered =
                SlaStatsImpl::getMaxLinkRateFromHistory(stats.history, rate, &parameters);
        stats.linkRate = rate == 0 ? remembered : rate;
    }

    double bytesPerMs;
    uint64_t silenceMs;
    std::vector<Part> parts;
    linkStatsWrapper_t stats;
    int dealt = 0;

  private:
    StatsHeader* header() const { return static_cast<StatsHeader*>(m_file); }

    void record() {
        const bool burst = virtualNowMs - m_lastMs >= kSilenceMs;
        const auto type = static_cast<uint8_t>(burst ? kReference : kSampleRecord);
        auto* const records = reinterpret_cast<StatsRecord*>(header() + 1);
        records[header()->writeIndex] = {virtualNowMs, static_cast<uint32_t>(m_unwritten), 0, type,
                                         0};
        header()->writeIndex = (header()->writeIndex + 1) % kStatsRecords;
        m_unwritten = 0;
        m_lastMs = virtualNowMs;
    }

    void* m_file;  // the reader's
    double m_unwritten = 0;
    uint64_t m_lastMs = 0;
};

struct Outcome {
    double mbit = 0;
    int rebuilds = 0;
    std::array<double, 3> parts{};  // of the connections
};

class Download {
  public:
    Download(const Settings& settings, int parallel, uint32_t seed)
        : m_settings(settings), m_parallel(parallel), m_random(seed) {
        const std::array<const char*, 3> names{"wlan0", "wlan1", "rmnet_data0"};
        for (size_t i = 0; i < names.size(); ++i) {
            const bool wlan = i < 2;
            m_lines.push_back(
                    std::make_unique<Line>(names[i], settings.mbit[i], settings.delayMs[i], wlan));
            auto record = std::make_unique<InterfaceInfo_t>();
            record->metered = !wlan && settings.metered;
            m_table[names[i]] = std::move(record);
        }
        // Unmetered links before metered ones, in the order of their names.
        m_order = settings.metered ? std::vector<size_t>{0, 1, 2} : std::vector<size_t>{2, 0, 1};
    }

    Outcome run() {
        virtualNowMs = 1'000'000'000;
        const uint64_t begin = virtualNowMs;
        const uint64_t period = Parameters::instance()->get(kMiniEstInterval);
        pass();
        m_ready = 0;  // the first rules are there before the first connection
        const uint64_t phase = m_random() % period;
        int started = 0;
        int through = 0;
        while (through < kParts && virtualNowMs - begin < kLongestMs) {
            for (; started < kParts && started - through < m_parallel; ++started) {
                Line& line = *m_lines[draw()];
                line.parts.push_back({virtualNowMs + line.silenceMs, kPartBytes});
                ++line.dealt;
            }
            ++virtualNowMs;
            const int before = through;
            for (const auto& line : m_lines) {
                through += line->work();
            }
            if (m_settings.falls && before < kParts / 2 && through >= kParts / 2) {
                m_lines[0]->bytesPerMs /= 10;
            }
            if ((virtualNowMs - begin) % period == phase) {
                pass();
            }
        }
        return outcome(static_cast<double>(virtualNowMs - begin));
    }

  private:
    void pass() {
        float metered = 0;
        float unmetered = 0;
        float most = 0;
        for (const auto& line : m_lines) {
            const bool charged = m_table[line->stats.interfaceName]->metered;
            line->measure(charged);
            const auto rate = static_cast<float>(line->stats.linkRate);
            (charged ? metered : unmetered) += rate;
            most = charged ? most : std::max(most, rate);
        }
        const auto threshold = static_cast<float>(Parameters::instance()->get(kWifiThreshold));
        LinkStatsMap links;  // what the shares are written to, and where they stood before
        for (const auto& line : m_lines) {
            auto& link = links[line->stats.interfaceName] = std::make_unique<linkStatsWrapper_t>();
            std::memcpy(link->interfaceName, line->stats.interfaceName, sizeof link->interfaceName);
            link->linkRate = line->stats.linkRate;
            link->interfaceRatio = line->stats.interfaceRatio;
        }
        const bool moved = SlaStatsImpl::calcSlaRatios(
                links, m_table,
                unmetered <= threshold ? SLA_CALC_WITH_METERED : SLA_CALC_UNMETERED_ONLY, metered,
                unmetered, most, false);
        for (size_t i = 0; i < m_lines.size(); ++i) {
            auto& stats = m_lines[i]->stats;
            stats.interfaceRatio = links[stats.interfaceName]->interfaceRatio;
            m_rules[i] = moved ? stats.interfaceRatio : m_rules[i];
        }
        if (moved) {
            ++m_rebuilds;
            m_ready = virtualNowMs;
        }
    }

    // The link of a new connection: the application is on two lists, so what the rules leave is
    // dealt once more, and goes by the default link after that. Rules that are not back yet after
    // a rebuild take nothing.
    size_t draw() {
        for (int passage = 0; passage < 2; ++passage) {
            double at = std::uniform_real_distribution<>(0, 1)(m_random);
            uint64_t ready = m_ready;
            for (const size_t i : m_order) {
                ready += kRuleMs;
                if (m_ready != 0 && ready > virtualNowMs) {
                    break;
                }
                at -= static_cast<double>(m_rules[i]);
                if (at < 0) {
                    return i;
                }
            }
        }
        return 0;
    }

    Outcome outcome(double ms) const {
        Outcome found;
        found.mbit = kParts * kPartBytes * 8 / 1000 / ms;
        found.rebuilds = m_rebuilds;
        for (size_t i = 0; i < m_lines.size(); ++i) {
            found.parts[i] = static_cast<double>(m_lines[i]->dealt) / kParts;
        }
        return found;
    }

    const Settings& m_settings;
    int m_parallel;
    std::mt19937 m_random;
    std::vector<std::unique_ptr<Line>> m_lines;
    InterfaceTable m_table;
    std::vector<size_t> m_order;
    std::array<float, 3> m_rules{};
    uint64_t m_ready = 0;  // when the rules were emptied last
    int m_rebuilds = 0;
};

void print(const Settings& settings, int parallel) {
    std::vector<double> rates;
    std::array<double, 3> parts{};
    double rebuilds = 0;
    for (uint32_t seed = 1; seed <= kRuns; ++seed) {
        const Outcome one = Download(settings, parallel, seed).run();
        rates.push_back(one.mbit);
        rebuilds += one.rebuilds;
        for (size_t i = 0; i < parts.size(); ++i) {
            parts[i] += one.parts[i] / kRuns;
        }
    }
    std::sort(rates.begin(), rates.end());
    std::printf(
            "%2d at a time: %5.1f Mbit/s (%.1f, %.1f)  connections %.2f %.2f %.2f  "
            "rebuilds %.1f\n",
            parallel, rates[kRuns / 2], rates[kRuns / 4], rates[kRuns * 3 / 4], parts[0], parts[1],
            parts[2], rebuilds / kRuns);
}

// Reads "MBIT:MS,MBIT:MS,MBIT:MS".
bool readLinks(const std::string& value, Settings& settings) {
    const char* text = value.c_str();
    for (size_t i = 0; i < settings.mbit.size(); ++i) {
        char* end = nullptr;
        settings.mbit[i] = std::strtod(text, &end);
        if (*end != ':' || settings.mbit[i] <= 0) {
            return false;
        }
        settings.delayMs[i] = std::strtod(end + 1, &end);
        if (*end != (i + 1 < settings.mbit.size() ? ',' : '\0')) {
            return false;
        }
        text = end + 1;
    }
    return true;
}

int run(int argc, char** argv) {
    Settings settings;
    for (int i = 1; i < argc; ++i) {
        const std::string word(argv[i]);
        const std::string key = word.substr(0, word.find('='));
        const std::string value = word.substr(std::min(word.size(), key.size() + 1));
        bool good = true;
        if (key == "links") {
            good = readLinks(value, settings);
        } else if (key == "metered") {
            settings.metered = value != "0";
        } else if (key == "falls") {
            settings.falls = value != "0";
        } else {
            good = Parameters::instance()->setValue(key.c_str(), value.c_str());
        }
        if (!good) {
            std::fprintf(stderr, "share_simulation: %s: no such setting\n", argv[i]);
            return 2;
        }
    }
    for (const int parallel : {6, 12, 24}) {
        print(settings, parallel);
    }
    return 0;
}

}  // namespace
}  // namespace lnkd

int main(int argc, char** argv) {
    return lnkd::run(argc, argv);
}
