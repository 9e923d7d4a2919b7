// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "core/parameters.h"
#include "core/text_values.h"
#include "rules/command_runner.h"
#include "rules/iptables_manager.h"

#define LNKD_LOG_TAG "DVX-Lnkd-iptablesManager"
#include "core/log.h"

namespace lnkd {

int32_t IptablesManager::create_DVX_FWMARK_chain_for_iface(const InterfaceInfo_t* record) {
    static constexpr char kCaller[] = "create_DVX_FWMARK_chain_for_iface";
    if (record == nullptr) {
        LNKD_LOGE("%s, Creating FWMARK Chain for a NULL iface", kCaller);
        return -1;
    }
    const std::string chain = std::string("zelk_fw_") + record->name;
    uint32_t failed = 0;
    runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -N %s", chain.c_str());
    failed += runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -F %s", chain.c_str());
    if (hasWrapperChain(*record)) {
        const std::string wrapper = chain + "_wrapper";
        runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -N %s", wrapper.c_str());
        failed +=
                runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -F %s", wrapper.c_str());
    }
    failed += runCommand(
            "/system/bin/iptables-wrapper-1.0 -w -t mangle -A %s -j MARK "
            "--set-mark %s",
            chain.c_str(), record->fwmark);
    failed += runCommand(
            "/system/bin/iptables-wrapper-1.0 -w -t mangle -A %s -j CONNMARK "
            "--save-mark",
            chain.c_str());
    failed += runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -A %s -j ACCEPT",
                         chain.c_str());
    failed += addPolicyRule(*record);
    failed += runCommand(
            "/system/bin/iptables-wrapper-1.0 -w -t nat -A zelk_nat_POSTROUTING_DVX "
            "-o %s -j MASQUERADE",
            record->name);
    if (failed != 0) {
        LNKD_LOGE("%s Failue when creating FWMARK tables for interface %s ", kCaller, record->name);
        return -1;
    }
    return 0;
}

int32_t IptablesManager::remove_DVX_FWMARK_chain_for_iface(const InterfaceInfo_t* record) {
    if (record == nullptr) {
        LNKD_LOGE("%s, Remove FWMARK Chain for a NULL iface", "remove_DVX_FWMARK_chain_for_iface");
        return -1;
    }
    return removeFwmarkChain(*record, true);
}

int32_t IptablesManager::removeFwmarkChain(const InterfaceInfo_t& record, bool othersStay) {
    const std::string chain = std::string("zelk_fw_") + record.name;
    const std::string wrapper = chain + "_wrapper";
    uint32_t failed = 0;
    {
        const MutexLock lock(chainMutex);
        // Ratio rules jump to these chains, which could not be deleted under them.
        runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -F zelk_SLA");
        runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -F %s", wrapper.c_str());
        failed +=
                runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -X %s", wrapper.c_str());
        failed += runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -F %s", chain.c_str());
        failed += runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -X %s", chain.c_str());
        failed += removePolicyRule(record, othersStay);
        failed += runCommand(
                "/system/bin/iptables-wrapper-1.0 -w -t nat -D "
                "zelk_nat_POSTROUTING_DVX -o %s -j MASQUERADE",
                record.name);
    }
    if (failed != 0) {
        LNKD_LOGE("%s Failure when removing FWMARK tables for interface %s ",
                  "remove_DVX_FWMARK_chain_for_iface", record.name);
        return -1;
    }
    return 0;
}

uint32_t IptablesManager::removePolicyRule(const InterfaceInfo_t& record, bool othersStay) {
    const InterfaceSnapshot table = Parameters::instance()->interfaces();
    std::vector<const InterfaceInfo_t*> staying;
    for (const auto& [name, other] : *table) {
        if (othersStay && name != record.name &&
            parseFwmark(other->fwmark) == parseFwmark(record.fwmark)) {
            staying.push_back(other.get());
        }
    }
    uint32_t failed = deletePolicyRule(record);
    for (const InterfaceInfo_t* const other : staying) {
        failed += deletePolicyRule(*other);
    }
    for (const InterfaceInfo_t* const other : staying) {
        failed += addPolicyRule(*other);
    }
    return failed;
}

uint32_t IptablesManager::deletePolicyRule(const InterfaceInfo_t& record) {
    return runCommand("/system/bin/ip-wrapper-1.0 -4 rule del fwmark %s prio 30000", record.fwmark);
}

uint32_t IptablesManager::addPolicyRule(const InterfaceInfo_t& record) {
    return runCommand("/system/bin/ip-wrapper-1.0 -4 rule add fwmark %s table %s prio 30000",
                      record.fwmark, record.routeTable);
}

int32_t IptablesManager::cleanup_DVX_iptables_FWMARK_chains() {
    const int failures = failuresOnAllInterfaces(
            [](const InterfaceInfo_t* record) { return removeFwmarkChain(*record, false); },
            [](const char* name) {
                LNKD_LOGE("%s Cleanup FWMARK for interface %s failed",
                          "cleanup_DVX_iptables_FWMARK_chains", name);
            });
    if (failures != 0) {
        LNKD_LOGE("%s Failure when cleaning FWMARK tables for all interfaces ",
                  "cleanup_DVX_iptables_FWMARK_chains");
        return -1;
    }
    return 0;
}

}  // namespace lnkd
