// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <ctime>
#include <vector>

#include "aggregation/sla_stats_data.h"
#include "aggregation/sla_stats_impl.h"
#include "core/parameters.h"
#include "rules/iptables_manager.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SlaStatsImpl"
#include "core/log.h"

namespace lnkd {

namespace {

constexpr int64_t kRatioLogIntervalSeconds = 6;

// What the shares of one pass are computed from.
struct RatioInputs {
    SLA_ratio_calc_process process;
    float threshold;     // wifi_threshold, kbit/s
    float meteredSum;    // kbit/s
    float unmeteredSum;  // kbit/s
    float unmeteredMax;  // kbit/s
    unsigned int unmeteredCount;

    // One of several unmetered links carries nearly all of their traffic.
    bool isDominated() const {
        return unmeteredSum != 0 && unmeteredCount >= 2 &&
               Parameters::ratioTopPercent / 100.0 <
                       static_cast<double>(unmeteredMax / unmeteredSum);
    }
};

// A link of the pass with its record.
struct RatioLink {
    linkStatsWrapper_t* link;
    bool metered;
    float previousRatio;
};

// The links in name order, less those that are gone from the table.
std::vector<RatioLink> linksOf(const LinkStatsMap& links, const InterfaceTable& table) {
    std::vector<RatioLink> found;
    found.reserve(links.size());
    for (const auto& [name, link] : links) {
        const auto record = table.find(link->interfaceName);
        if (record != table.end()) {
            found.push_back({link.get(), record->second->metered, link->interfaceRatio});
        }
    }
    return found;
}

// While metered links help: an unmetered link gets what its rate is of the threshold (of twice
// the threshold when there are several), the metered ones what the threshold leaves.
float ratioWithMetered(const RatioInputs& in, float rate, bool metered) {
    if (metered) {
        const float left = 1.0F - in.unmeteredSum / in.threshold;
        const float ratio = in.meteredSum == 0 ? 0 : left * (rate / in.meteredSum);
        return std::isnan(ratio) ? 0 : ratio;  // a threshold of 0 and idle unmetered links
    }
    const float threshold = in.unmeteredCount < 2 ? in.threshold : 2 * in.threshold;
    return threshold == 0 ? 0 : rate / threshold;
}

float ratioUnmeteredOnly(const RatioInputs& in, float rate) {
    if (in.isDominated()) {
        const auto high = static_cast<float>(Parameters::ratioHighPercent);
        if (rate == in.unmeteredMax) {
            return high / 100;
        }
        return static_cast<float>((1 - static_cast<double>(high) / 100) / (in.unmeteredCount - 1));
    }
    return in.unmeteredSum == 0 ? 0 : rate / in.unmeteredSum;
}

// The share of one link; what the bookkeeping of the rest counts, which for a metered link that
// is not used is more than what the link gets.
float countedRatio(const RatioInputs& in, const RatioLink& entry) {
    const auto rate = static_cast<float>(entry.link->linkRate);
    float& ratio = entry.link->interfaceRatio;
    float counted = 0;
    switch (in.process) {
        case SLA_CALC_WITH_METERED:
            counted = ratioWithMetered(in, rate, entry.metered);
            ratio = counted;
            break;
        case SLA_CALC_UNMETERED_ONLY:
            counted = ratioUnmeteredOnly(in, rate);
            ratio = entry.metered ? 0 : counted;
            break;
        default:
            LNKD_LOGE("%s unexpected behavior in calc ratio", "calcSlaRatios");
            break;
    }
    return counted;
}

// Gives what is left of the connections to the links that moved nothing, so that they are tried.
void fillIdleLinks(const RatioInputs& in, const std::vector<RatioLink>& links, float remaining,
                   unsigned int zeroCount) {
    if (!(remaining > 0) || zeroCount == 0) {
        return;
    }
    const bool allIdle = in.meteredSum == 0 && in.unmeteredSum == 0;
    for (const RatioLink& entry : links) {
        if (entry.link->linkRate != 0) {
            continue;
        }
        if (!allIdle) {
            entry.link->interfaceRatio = remaining / static_cast<float>(zeroCount);
        } else if (entry.metered) {
            entry.link->interfaceRatio = 0;
        } else {
            entry.link->interfaceRatio = remaining / static_cast<float>(in.unmeteredCount);
        }
    }
}

}  // namespace

void SlaStatsImpl::evalAndSetSLAInterfaceRatio() {
    const Parameters* const parameters = Parameters::instance();
    IptablesManager* const rules = IptablesManager::instance();
    const MutexLock lock(statsMutex);
    const InterfaceSnapshot table = parameters->interfaces();
    uint32_t meteredSum = 0;
    uint32_t unmeteredSum = 0;
    uint32_t unmeteredMax = 0;
    for (const auto& [name, link] : m_slaInterfaceMap) {
        const auto record = table->find(link->interfaceName);
        if (link->statsData == nullptr || record == table->end()) {
            continue;
        }
        measureLink(*link, record->second->metered, *parameters);
        if (record->second->metered) {
            meteredSum += link->linkRate;
        } else {
            unmeteredSum += link->linkRate;
            unmeteredMax = std::max(unmeteredMax, link->linkRate);
        }
    }
    const SLA_ratio_calc_process process = unmeteredSum <= parameters->get(kWifiThreshold)
                                                   ? SLA_CALC_WITH_METERED
                                                   : SLA_CALC_UNMETERED_ONLY;
    const bool moved = calcSlaRatios(
            m_slaInterfaceMap, *table, process, static_cast<float>(meteredSum),
            static_cast<float>(unmeteredSum), static_cast<float>(unmeteredMax), ratioLogIsDue());
    if (moved || (!m_sharesKnown && !m_slaInterfaceMap.empty())) {
        const bool built = rules->set_SLA_ratio_iptables(m_slaInterfaceMap, *table) == 0;
        m_sharesKnown = m_sharesKnown || built;
    }
}

void SlaStatsImpl::forgetShares() {
    const MutexLock lock(statsMutex);
    m_sharesKnown = false;
    for (const auto& [name, link] : m_slaInterfaceMap) {
        link->interfaceRatio = 0;
    }
}

void SlaStatsImpl::measureLink(linkStatsWrapper_t& link, bool metered,
                               const Parameters& parameters) {
    uint32_t estimate = link.statsData->linkRateEstimate(&link.sampleCount, link.interfaceName);
    if (link.sampleCount < parameters.estimate_pack_num) {
        estimate = 0;
    }
    // A trickle on a metered link is background noise, not a measurement of the link.
    if (metered && estimate < parameters.get(kWanThreshold)) {
        estimate = 0;
    }
    link.linkRate = estimate;
    const uint32_t fallback = getMaxLinkRateFromHistory(link.history, estimate, &parameters);
    if (link.linkRate == 0) {
        link.linkRate = fallback;
    }
}

uint32_t SlaStatsImpl::getMaxLinkRateFromHistory(linkHistory_t& history, uint32_t rate,
                                                 const Parameters* parameters) {
    const uint32_t capacity = parameters->best_est_cache_size;
    if (capacity == 0) {
        return rate;
    }
    bool maximumLeft = false;
    if (history.rates.size() >= capacity) {
        maximumLeft = history.maxRate != 0 && history.maxRate == history.rates.front();
        history.rates.pop_front();
    }
    history.rates.push_back(rate);
    if (maximumLeft) {
        history.maxRate = *std::max_element(history.rates.begin(), history.rates.end());
    } else {
        history.maxRate = std::max(history.maxRate, rate);
    }
    return history.maxRate;
}

bool SlaStatsImpl::ratioLogIsDue() {
    const int64_t now = time(nullptr);
    if (now - lastRatioLogTime < kRatioLogIntervalSeconds) {
        return false;
    }
    lastRatioLogTime = now;
    return true;
}

bool SlaStatsImpl::calcSlaRatios(LinkStatsMap& links, const InterfaceTable& table,
                                 SLA_ratio_calc_process process, float meteredSum,
                                 float unmeteredSum, float unmeteredMax, bool logRatios) {
    const Parameters* const parameters = Parameters::instance();
    const std::vector<RatioLink> entries = linksOf(links, table);
    if (entries.empty()) {
        return false;
    }
    RatioInputs in{process,      static_cast<float>(parameters->get(kWifiThreshold)),
                   meteredSum,   unmeteredSum,
                   unmeteredMax, 0};
    in.unmeteredCount = static_cast<unsigned int>(std::count_if(
            entries.begin(), entries.end(), [](const RatioLink& entry) { return !entry.metered; }));

    float remaining = 1;
    unsigned int zeroCount = 0;
    for (const RatioLink& entry : entries) {
        const float ratio = countedRatio(in, entry);
        remaining -= ratio;
        zeroCount += ratio == 0 ? 1 : 0;
    }
    fillIdleLinks(in, entries, remaining, zeroCount);

    float difference = 0;
    for (const RatioLink& entry : entries) {
        const linkStatsWrapper_t& link = *entry.link;
        difference += std::fabs(entry.previousRatio - link.interfaceRatio);
        if (logRatios) {
            LNKD_LOGI("%s SLA_RATIO oldRatio = %f, new ratio = %f , LRE = %u ,interface = %s , ",
                      "calcSlaRatios", static_cast<double>(entry.previousRatio),
                      static_cast<double>(link.interfaceRatio), link.linkRate, link.interfaceName);
        }
    }
    // Half the sum of the changes is the share of new connections that would move.
    return static_cast<double>(difference) * 0.5 >
           static_cast<double>(static_cast<float>(parameters->min_ratio_change) / 100);
}

}  // namespace lnkd
