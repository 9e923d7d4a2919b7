// SPDX-License-Identifier: Apache-2.0
#include "control/selection_commands.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <optional>

#include "aggregation/sla_stats_impl.h"
#include "control/interface_commands.h"
#include "core/parameters.h"
#include "core/text_values.h"
#include "rules/iptables_manager.h"
#include "selection/rssi_state_monitor.h"
#include "selection/smart_link_selection.h"
#include "selection/tcp_socket_monitor.h"

#define LNKD_LOG_TAG "DVX-Lnkd-LnkdSocket-Server"
#include "core/log.h"

namespace lnkd {

namespace {

// A number at the beginning of a text, after blanks; none when there is no digit or when it is
// beyond 32 bits.
std::optional<int32_t> leadingNumber(const char* text) {
    char* end = nullptr;
    errno = 0;
    const long long value = strtoll(text, &end, 10);
    using Limits = std::numeric_limits<int32_t>;
    if (end == text || errno == ERANGE || value < Limits::min() || value > Limits::max()) {
        return std::nullopt;
    }
    return static_cast<int32_t>(value);
}

void setSteeredUids(Parameters* parameters, const char* uids) {
    parameters->setGamingUids(uids);
    parameters->populateGamingUids();
}

void buildSelectionRules() {
    IptablesManager* const rules = IptablesManager::instance();
    rules->setup_dvx_whitelist();
    rules->setup_SLS_iptables_UID_chains();
}

void startProbes() {
    SmartLinkSelection* const engine = SmartLinkSelection::instance();
    engine->initPingThreads();
    engine->threadStop();
    engine->createRttThreads();
    engine->threadResume();
}

void stopProbes() {
    SmartLinkSelection* const engine = SmartLinkSelection::instance();
    engine->threadStop();
    engine->threadDestory();
    engine->destoryPingThreads();
}

int startCall(Parameters* parameters, const char* uid) {
    if (!parseUid(uid).has_value()) {
        LNKD_LOGE("call refused, not a UID: %s", uid);
        return -1;
    }
    parameters->setProbeTarget({kDefaultRttServer, kDefaultRttServerPort});
    SlaStatsImpl::instance()->enableSlaVoipState(true, uid);
    setSteeredUids(parameters, uid);
    buildSelectionRules();
    parameters->setGamingConnectStatus(true);
    startProbes();
    RssiStateMonitor::instance();
    parameters->setVoipRunning(true);
    return 0;
}

void stopCall(Parameters* parameters, const char* text) {
    SlaStatsImpl::instance()->enableSlaVoipState(false, text);
    parameters->setVoipRunning(false);
    parameters->setServiceHighRtt(false);
    parameters->setGamingConnectStatus(false);
    stopProbes();
    IptablesManager::instance()->cleanup_SLS_iptables_UID_chains();
    RssiStateMonitor::finalize();
}

}  // namespace

int updateSlsInterfacesRtt(const char* text) {
    Parameters* const parameters = commandParameters();
    if (parameters == nullptr) {
        return -1;
    }
    const std::optional<int32_t> rtt = leadingNumber(text);
    if (!rtt.has_value()) {
        LNKD_LOGE("not a round-trip time: %s", text);
        return -1;
    }
    if (static_cast<uint32_t>(*rtt) > parameters->rtt_exit_threshold &&
        !parameters->isServiceHighRtt()) {
        SmartLinkSelection* const engine = SmartLinkSelection::instance();
        engine->threadResume();
        engine->createRttThreads();
        parameters->setServiceHighRtt(true);
    }
    LNKD_LOGI("update Sls Interfaces Rtt is %s ", text);
    return 0;
}

int StartSlsServer(const char* uids) {
    Parameters* const parameters = commandParameters();
    if (parameters == nullptr) {
        return -1;
    }
    if (parameters->isGamingRunning()) {
        return 0;
    }
    parameters->setProbeTarget({kDefaultRttServer, kDefaultRttServerPort});
    setSteeredUids(parameters, uids);
    parameters->setGamingConnectStatus(true);
    buildSelectionRules();
    startProbes();
    RssiStateMonitor::instance();
    SlaTcpSocketMonitor::instance()->resumePolling();
    parameters->setGamingRunning(true);
    return 0;
}

int StopSlsServer() {
    Parameters* const parameters = commandParameters();
    if (parameters == nullptr) {
        return -1;
    }
    if (!parameters->isGamingRunning()) {
        return 0;
    }
    SlaTcpSocketMonitor::finalize();
    parameters->setServiceHighRtt(false);
    stopProbes();
    IptablesManager::instance()->cleanup_SLS_iptables_UID_chains();
    parameters->setGamingRunning(false);
    RssiStateMonitor::finalize();
    return 0;
}

int setVoipStatus(const char* text) {
    Parameters* const parameters = commandParameters();
    if (parameters == nullptr) {
        return -1;
    }
    const bool start = parseInt(text) != 0;
    if (start && !parameters->isVoipRunning()) {
        return startCall(parameters, text);
    }
    if (!start && parameters->isVoipRunning()) {
        stopCall(parameters, text);
    }
    return 0;
}

}  // namespace lnkd
