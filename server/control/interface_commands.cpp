// SPDX-License-Identifier: Apache-2.0
#include "control/interface_commands.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "aggregation/sla_stats_impl.h"
#include "core/parameters.h"
#include "core/stop_request.h"
#include "core/text_values.h"
#include "rules/iptables_manager.h"
#include "selection/smart_link_selection.h"

#define LNKD_LOG_TAG "DVX-Lnkd-LnkdSocket-Server"
#include "core/log.h"

namespace lnkd {

namespace {

std::atomic<Parameters*> parametersForCommands{nullptr};

// What the previous messages said. Only handlers reach it, and the command lock is held around
// each of them.
std::vector<std::string> previousInterfaces;
std::string lastUidWhitelist;
std::string lastDblWlanWhitelist;

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// A name that the table had no room for is not known: the next list may find some.
bool lacksRoom(const std::string& name) {
    const Parameters* const parameters = commandParameters();
    return parameters != nullptr && isInterfaceName(name) &&
           parameters->findInterface(name) == nullptr;
}

// Takes a whitelist, unless it equals the last one, into the parameter store and the rules.
int setWhitelist(const char* uids, std::string& last, void (Parameters::*set)(const char*),
                 void (Parameters::*populate)(), int32_t (IptablesManager::*setupWrappers)()) {
    if (last == uids) {
        return 0;
    }
    last = uids;
    Parameters* const parameters = commandParameters();
    if (parameters == nullptr) {
        return -1;
    }
    (parameters->*set)(strcmp(uids, "NULL") == 0 ? "" : uids);
    (parameters->*populate)();
    IptablesManager* const rules = IptablesManager::instance();
    rules->setup_dvx_whitelist();
    (rules->*setupWrappers)();
    return 0;
}

}  // namespace

void setCommandParameters(Parameters* parameters) {
    parametersForCommands.store(parameters, std::memory_order_release);
}

Parameters* commandParameters() {
    return parametersForCommands.load(std::memory_order_acquire);
}

int updateInterfaces(const char* list) {
    if (list == nullptr) {
        return 0;
    }
    const std::vector<std::string> current = splitDistinct(list);
    for (const std::string& name : previousInterfaces) {
        if (!contains(current, name) && !stopRequested()) {
            LNKD_LOGI("remove Interfaces is %s", name.c_str());
            removeInterfaces(name.c_str());
        }
    }
    for (const std::string& name : current) {
        if (!contains(previousInterfaces, name) && !stopRequested()) {
            LNKD_LOGI("add Interfaces is %s", name.c_str());
            addInterfaces(name.c_str());
        }
    }
    previousInterfaces.clear();
    std::copy_if(current.begin(), current.end(), std::back_inserter(previousInterfaces),
                 [](const std::string& name) { return !lacksRoom(name); });
    for (const std::string& name : previousInterfaces) {
        LNKD_LOGI("preinterfacelist is %s", name.c_str());
    }
    return 0;
}

int addInterfaces(const char* name) {
    Parameters* const parameters = commandParameters();
    if (parameters == nullptr) {
        return -1;
    }
    parameters->UpdateInterface(name, true);
    if (parameters->findInterface(name) == nullptr) {
        return 0;  // refused: not worth starting the statistics of all others anew
    }
    SlaStatsImpl::instance()->updateSlaInterfacemap(name, true);
    IptablesManager::instance()->updateInterfaceIptables(name, true);
    SlaStatsImpl::instance()->forgetShares();
    if (SmartLinkSelection::isInstance()) {
        SmartLinkSelection::instance()->updateSlsInterfacemap(name, true);
    }
    return 0;
}

int removeInterfaces(const char* name) {
    Parameters* const parameters = commandParameters();
    if (parameters == nullptr) {
        return -1;
    }
    IptablesManager::instance()->updateInterfaceIptables(name, false);
    if (stopRequested()) {
        return 0;  // maybe not all of its rules are gone: the teardown needs its record
    }
    parameters->UpdateInterface(name, false);
    SlaStatsImpl::instance()->updateSlaInterfacemap(name, false);
    SlaStatsImpl::instance()->forgetShares();
    if (SmartLinkSelection::isInstance()) {
        SmartLinkSelection::instance()->updateSlsInterfacemap(name, false);
    }
    return 0;
}

int setUidWhitelist(const char* uids) {
    return setWhitelist(uids, lastUidWhitelist, &Parameters::setuidwhitelist,
                        &Parameters::populateuidwhitelist, &IptablesManager::setup_uid_whitelist);
}

int setDblWlanUidWhitelist(const char* uids) {
    return setWhitelist(uids, lastDblWlanWhitelist, &Parameters::setDblWlanUidWhitelist,
                        &Parameters::populateDblWlanUidWhitelist,
                        &IptablesManager::setup_double_wlan_uid_whitelist);
}

}  // namespace lnkd
