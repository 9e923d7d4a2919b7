// SPDX-License-Identifier: Apache-2.0
#include "rules/iptables_manager.h"

#include <atomic>

#include "core/parameters.h"
#include "core/text_values.h"
#include "rules/command_runner.h"

#define LNKD_LOG_TAG "DVX-Lnkd-iptablesManager"
#include "core/log.h"

namespace lnkd {

Mutex IptablesManager::ruleSetMutex;
Mutex IptablesManager::chainMutex;

namespace {

// Creating before flushing, and deleting a hook before inserting it, makes this idempotent over
// what a killed run left; what the kernel refuses on the way is of no interest.
constexpr const char* kSetupCommands[] = {
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -N zelk_DVX",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -F zelk_DVX",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -N zelk_SLA",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -F zelk_SLA",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -N zelk_SLS",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -F zelk_SLS",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -N zelk_DVX_wapper",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -F zelk_DVX_wapper",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -I zelk_DVX 1 -j zelk_SLS",
        ("/system/bin/iptables-wrapper-1.0 -w -t mangle -I zelk_DVX 2 "
         "-m state --state ESTABLISHED,RELATED -j CONNMARK --restore-mark"),
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -I zelk_DVX 3 -j zelk_SLA",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -D OUTPUT -j zelk_DVX_wapper",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -I OUTPUT -j zelk_DVX_wapper",
        "/system/bin/iptables-wrapper-1.0 -w -t nat -F zelk_nat_POSTROUTING_DVX",
        "/system/bin/iptables-wrapper-1.0 -w -t nat -N zelk_nat_POSTROUTING_DVX",
        "/system/bin/iptables-wrapper-1.0 -w -t nat -D POSTROUTING -j zelk_nat_POSTROUTING_DVX",
        "/system/bin/iptables-wrapper-1.0 -w -t nat -I POSTROUTING -j zelk_nat_POSTROUTING_DVX",
};

// Unhooks first, then empties each chain before deleting it. The chains of the interfaces follow:
// a chain can be deleted only when no rule refers to it any more.
constexpr const char* kTeardownCommands[] = {
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -D OUTPUT -j zelk_DVX_wapper",
        "/system/bin/iptables-wrapper-1.0 -w -t nat -D POSTROUTING -j zelk_nat_POSTROUTING_DVX",
        "/system/bin/iptables-wrapper-1.0 -w -t nat -F zelk_nat_POSTROUTING_DVX",
        "/system/bin/iptables-wrapper-1.0 -w -t nat -X zelk_nat_POSTROUTING_DVX",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -F zelk_DVX_wapper",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -X zelk_DVX_wapper",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -F zelk_DVX",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -X zelk_DVX",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -F zelk_SLA",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -X zelk_SLA",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -F zelk_SLS",
        "/system/bin/iptables-wrapper-1.0 -w -t mangle -X zelk_SLS",
};

std::atomic<IptablesManager*> theInstance{nullptr};
std::atomic<bool> tornDown{false};

}  // namespace

IptablesManager* IptablesManager::instance() {
    // Built before any other thread runs, so two first calls cannot meet.
    if (theInstance.load(std::memory_order_acquire) == nullptr &&
        !tornDown.load(std::memory_order_acquire)) {
        theInstance.store(new IptablesManager, std::memory_order_release);
    }
    return theInstance.load(std::memory_order_acquire);
}

void IptablesManager::clean_DVX_iptables() {
    if (theInstance.load(std::memory_order_acquire) != nullptr) {
        tornDown.store(true, std::memory_order_release);
        runTeardownCommands();
        delete theInstance.exchange(nullptr, std::memory_order_acq_rel);
    }
}

IptablesManager::IptablesManager() {
    for (const char* command : kSetupCommands) {
        execnetd(command);
    }
}

IptablesManager::~IptablesManager() {
    for (const char* command : kTeardownCommands) {
        execnetd(command);
    }
    cleanup_SLS_iptables_UID_chains();
    cleanup_DVX_iptables_FWMARK_chains();
}

int32_t IptablesManager::updateInterfaceIptables(const char* name, bool add) {
    const Parameters* const parameters = Parameters::instance();
    const auto record = parameters->findInterface(name);
    if (record == nullptr) {
        return 0;
    }
    const bool selecting = parameters->isVoipRunning() || parameters->isGamingRunning();
    if (add) {
        create_DVX_FWMARK_chain_for_iface(record.get());
        setup_dvx_whitelist();
        setup_double_wlan_uid_whitelist();
        setup_uid_whitelist();
        if (selecting) {
            create_SLS_iptables_UID_for_interface(record.get());
        }
    } else {
        if (selecting) {
            remove_SLS_iptables_UID_for_interface(record.get());
        }
        remove_DVX_FWMARK_chain_for_iface(record.get());
    }
    return 0;
}

int IptablesManager::failuresOnAllInterfaces(const InterfaceOperation& operation,
                                             void (*report)(const char* name)) {
    int failures = 0;
    const InterfaceSnapshot table = Parameters::instance()->interfaces();
    for (const auto& [name, record] : *table) {
        if (operation(record.get()) != 0) {
            report(name.c_str());
            ++failures;
        }
    }
    return failures;
}

bool hasWrapperChain(const InterfaceInfo_t& record) {
    return record.metered || record.slave || isCellularName(record.name);
}

}  // namespace lnkd
