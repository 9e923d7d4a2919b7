// SPDX-License-Identifier: Apache-2.0
#include "core/parameters.h"
#include "rules/command_runner.h"
#include "rules/iptables_manager.h"
#include "rules/uid_entries.h"

#define LNKD_LOG_TAG "DVX-Lnkd-iptablesManager"
#include "core/log.h"

namespace lnkd {

namespace {

std::string selectionChain(const char* interfaceName) {
    return std::string("zelk_sls_") + interfaceName;
}

std::string selectionUidChain(const char* interfaceName) {
    return std::string("zelk_sls_uid_") + interfaceName;
}

}  // namespace

int32_t IptablesManager::create_SLS_iptables_UID_for_interface(const InterfaceInfo_t* record) {
    static constexpr char kCaller[] = "create_SLS_iptables_UID_for_interface";
    if (record == nullptr) {
        LNKD_LOGE("%s, Creating UID Chain for a NULL iface", kCaller);
        return -1;
    }
    const std::string chain = selectionChain(record->name);
    const std::string uidChain = selectionUidChain(record->name);
    const std::string markChain = std::string("zelk_fw_") + record->name;
    uint32_t failed = 0;
    runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -N %s", chain.c_str());
    failed += runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -F %s", chain.c_str());
    failed += runCommand(
            "/system/bin/iptables-wrapper-1.0 -w -t mangle -A %s -p udp ! --dport 53 "
            "-j %s",
            chain.c_str(), markChain.c_str());
    failed += runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -A %s -p tcp -j %s",
                         chain.c_str(), markChain.c_str());
    failed += runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -A %s -j ACCEPT",
                         chain.c_str());
    runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -N %s", uidChain.c_str());
    failed += runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -F %s", uidChain.c_str());
    for (const std::string& uid : usableUids(Parameters::instance()->gamingUidList())) {
        failed += runCommand(
                "/system/bin/iptables-wrapper-1.0 -w -t mangle -A %s -m owner "
                "--uid-owner %s -j %s",
                uidChain.c_str(), uid.c_str(), chain.c_str());
    }
    if (failed != 0) {
        LNKD_LOGE("%s Failue when creating UID tables for interface %s ", kCaller, record->name);
        return -1;
    }
    return 0;
}

int32_t IptablesManager::remove_SLS_iptables_UID_for_interface(const InterfaceInfo_t* record) {
    static constexpr char kCaller[] = "remove_SLS_iptables_UID_for_interface";
    if (record == nullptr) {
        LNKD_LOGE("%s, Remove UID Chain for a NULL iface", kCaller);
        return -1;
    }
    const std::string chain = selectionChain(record->name);
    const std::string uidChain = selectionUidChain(record->name);
    uint32_t failed = 0;
    {
        const MutexLock lock(chainMutex);
        failed += runCommand("/system/bin/iptables-wrapper-1.0  -w -t mangle -D zelk_SLS -j %s",
                             uidChain.c_str());
        failed += runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -F %s", chain.c_str());
        failed +=
                runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -F %s", uidChain.c_str());
        failed += runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -X %s", chain.c_str());
        failed +=
                runCommand("/system/bin/iptables-wrapper-1.0 -w -t mangle -X %s", uidChain.c_str());
    }
    if (failed != 0) {
        LNKD_LOGE("%s Failure when removing UID tables for interface %s ", kCaller, record->name);
        return -1;
    }
    return 0;
}

int32_t IptablesManager::setup_SLS_iptables_UID_chains() {
    const int failures = failuresOnAllInterfaces(
            [this](const InterfaceInfo_t* record) {
                return create_SLS_iptables_UID_for_interface(record);
            },
            [](const char* name) {
                LNKD_LOGE("%s Creating UID chain for interface %s failed",
                          "setup_SLS_iptables_UID_chains", name);
            });
    if (failures != 0) {
        LNKD_LOGE("%s Failure when creating SLS UID tables for all interfaces ",
                  "setup_SLS_iptables_UID_chains");
        return -1;
    }
    return 0;
}

int32_t IptablesManager::cleanup_SLS_iptables_UID_chains() {
    const int failures = failuresOnAllInterfaces(
            [this](const InterfaceInfo_t* record) {
                return remove_SLS_iptables_UID_for_interface(record);
            },
            [](const char* name) {
                LNKD_LOGE("%s Remove UID chain for interface %s failed",
                          "cleanup_SLS_iptables_UID_chains", name);
            });
    if (failures != 0) {
        LNKD_LOGE("%s Failure when removing SLS UID tables for all interfaces ",
                  "cleanup_SLS_iptables_UID_chains");
        return -1;
    }
    return 0;
}

int32_t IptablesManager::set_SLS_interface(const char* name) {
    const std::string chain = selectionUidChain(name);
    uint32_t failed = 0;
    {
        const MutexLock lock(chainMutex);
        failed += runCommand("/system/bin/iptables-wrapper-1.0  -w -t mangle -F zelk_SLS");
        failed += runCommand("/system/bin/iptables-wrapper-1.0  -w -t mangle -A zelk_SLS -j %s",
                             chain.c_str());
    }
    if (failed != 0) {
        LNKD_LOGE("%s Failue during SLS interface switch  %s %s ", "set_SLS_interface", name,
                  chain.c_str());
        return -1;
    }
    return 0;
}

}  // namespace lnkd
