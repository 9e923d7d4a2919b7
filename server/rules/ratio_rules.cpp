// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "rules/command_runner.h"
#include "rules/iptables_manager.h"

#define LNKD_LOG_TAG "DVX-Lnkd-iptablesManager"
#include "core/log.h"

namespace lnkd {

namespace {

// The probability that gives a link its `ratio` of all connections after earlier rules took
// `assigned`. Rounding can carry the last link just above 1, which the packet filter refuses.
float conditionalProbability(float ratio, float assigned) {
    const double rest = 1.0 - static_cast<double>(assigned);
    const double probability = rest > 0 ? static_cast<double>(ratio) / rest : 0;
    // A comparison with not-a-number is false, so this makes it 0.
    return probability > 0 ? static_cast<float>(std::min(probability, 1.0)) : 0;
}

}  // namespace

int32_t IptablesManager::set_SLA_ratio_iptables(const LinkStatsMap& links,
                                                const InterfaceTable& table) {
    const MutexLock ruleSetLock(ruleSetMutex);
    const MutexLock chainLock(chainMutex);
    uint32_t failed = runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -F zelk_SLA");
    float assigned = 0;
    for (const bool metered : {false, true}) {
        for (const auto& [name, link] : links) {
            const auto record = table.find(link->interfaceName);
            if (record != table.end() && record->second->metered == metered) {
                failed += appendRatioRule(*link, *record->second, assigned);
                assigned += link->interfaceRatio;
            }
        }
    }
    if (failed != 0) {
        LNKD_LOGE("%s Failure when setting SLA Ratios ", "set_SLA_ratio_iptables");
        return -1;
    }
    return 0;
}

uint32_t IptablesManager::appendRatioRule(const linkStatsWrapper_t& link,
                                          const InterfaceInfo_t& record, float assigned) {
    LNKD_LOGI("handle->interfaceRatio: %f handle->interfaceName: %s",
              static_cast<double>(link.interfaceRatio), link.interfaceName);
    const float probability = conditionalProbability(link.interfaceRatio, assigned);
    LNKD_LOGI("Updated Ratio: %f", static_cast<double>(probability));
    std::string chain = std::string("zelk_fw_") + link.interfaceName;
    if (hasWrapperChain(record)) {
        chain += "_wrapper";
    }
    const uint32_t result = runCommand(
            "/system/bin/iptables-wrapper-1.0 -w -t mangle -A zelk_SLA --match multiport -p tcp "
            "--dports 80,443,8080 -m state --state NEW -m statistic --mode random "
            "--probability %f -j %s",
            static_cast<double>(probability), chain.c_str());
    LNKD_LOGI("nf_conntrack interface %s fwmark %s socket number %d\n", link.interfaceName,
              record.fwmark, get_nf_conntrack_mark_number(record.fwmark));
    return result;
}

}  // namespace lnkd
