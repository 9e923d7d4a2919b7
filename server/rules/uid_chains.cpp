// SPDX-License-Identifier: Apache-2.0
#include "core/parameters.h"
#include "core/text_values.h"
#include "rules/command_runner.h"
#include "rules/iptables_manager.h"
#include "rules/uid_entries.h"

#define LNKD_LOG_TAG "DVX-Lnkd-iptablesManager"
#include "core/log.h"

namespace lnkd {

std::vector<std::string> usableUids(const std::vector<std::string>& entries) {
    std::vector<std::string> uids;
    for (const std::string& entry : entries) {
        if (parseUid(entry).has_value()) {
            uids.push_back(entry);
        } else {
            LNKD_LOGE("not a UID, skipped: %s", entry.c_str());
        }
    }
    return uids;
}

int32_t IptablesManager::setup_dvx_whitelist() {
    const Parameters* const parameters = Parameters::instance();
    uint32_t failed = runCommand(
            "/system/bin/iptables-wrapper-1.0 -w -t mangle -F "
            "zelk_DVX_wapper");
    for (const auto& list : {parameters->gamingUidList(), parameters->dblWlanUidWhitelist(),
                             parameters->uidWhitelist()}) {
        for (const std::string& uid : usableUids(list)) {
            failed += runCommand(
                    "/system/bin/iptables-wrapper-1.0 -w -t mangle -A "
                    "zelk_DVX_wapper -m owner --uid-owner %s -j zelk_DVX",
                    uid.c_str());
        }
    }
    return static_cast<int32_t>(failed);
}

int32_t IptablesManager::setup_uid_whitelist() {
    const Parameters* const parameters = Parameters::instance();
    const std::vector<std::string> uids = usableUids(parameters->uidWhitelist());
    const MutexLock lock(ruleSetMutex);
    uint32_t failed = 0;
    const InterfaceSnapshot table = parameters->interfaces();
    for (const auto& [name, record] : *table) {
        if (record->metered || isCellularName(name)) {
            failed += fillWrapperChain(*record, uids);
        }
    }
    return static_cast<int32_t>(failed);
}

int32_t IptablesManager::setup_double_wlan_uid_whitelist() {
    const Parameters* const parameters = Parameters::instance();
    const std::vector<std::string> uids = usableUids(parameters->dblWlanUidWhitelist());
    const MutexLock lock(ruleSetMutex);
    uint32_t failed = 0;
    const InterfaceSnapshot table = parameters->interfaces();
    for (const auto& [name, record] : *table) {
        if (record->slave) {
            failed += fillWrapperChain(*record, uids);
        }
    }
    return static_cast<int32_t>(failed);
}

uint32_t IptablesManager::fillWrapperChain(const InterfaceInfo_t& record,
                                           const std::vector<std::string>& uids) {
    const std::string wrapper = std::string("zelk_fw_") + record.name + "_wrapper";
    uint32_t failed =
            runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -F %s ", wrapper.c_str());
    for (const std::string& uid : uids) {
        failed += runCommand(
                "/system/bin/iptables-wrapper-1.0 -w -t mangle -A %s -m owner "
                "--uid-owner %s -j zelk_fw_%s",
                wrapper.c_str(), uid.c_str(), record.name);
    }
    return failed;
}

}  // namespace lnkd
