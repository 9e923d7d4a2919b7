// SPDX-License-Identifier: Apache-2.0
// Puts the daemon together: start-up, main loop, teardown. The one file of core that knows the
// subsystems above it.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <ctime>

#include "aggregation/sla_stats_impl.h"
#include "control/socket_server.h"
#include "core/parameters.h"
#include "rules/iptables_manager.h"
#include "selection/rssi_state_monitor.h"
#include "selection/smart_link_selection.h"
#include "selection/socket_killing.h"
#include "selection/tcp_socket_monitor.h"

#define LNKD_LOG_TAG "DVX-Lnkd-daemon"
#include "core/log.h"

namespace lnkd {

namespace {

constexpr int32_t kStopRequested = 2;  // vendor.sla.enabled
constexpr time_t kIdleSleepSeconds = 600;

// SIGTERM and SIGINT are never delivered: they wait, blocked, until the main thread asks for
// them. So no call is interrupted half-way and the teardown runs where it can, once.
sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    return signals;
}

// Blocks what every thread and shell started later is to have blocked or ignored.
void prepareSignals() {
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

// Sleeps, in milliseconds; true when a stop signal came before or meanwhile.
bool sleepUnlessStopped(int64_t ms) {
    const sigset_t signals = stopSignals();
    const timespec time{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000};
    return sigtimedwait(&signals, nullptr, &time) > 0;
}

void startUp() {
    LNKD_LOGI("Lnkd (SLA+SLS) 3.0.4.5 starting daemon");
    Parameters* const parameters = Parameters::instance();
    IptablesManager::instance();
    createSocketThreads(parameters);
    SlaStatsImpl::instance()->enableSLA(true);
    SmartLinkSelection::instance();
}

// Runs until vendor.sla.enabled says 2 or a stop signal comes; true for the latter.
bool runMainLoop() {
    Parameters* const parameters = Parameters::instance();
    for (;;) {
        SlaStatsImpl::instance()->evalAndSetSLAInterfaceRatio();
        SmartLinkSelection::instance()->slsChooseInterface();
        // A period below 1 ms, also one that was written as a negative number, would spin.
        const auto period = static_cast<int32_t>(parameters->get(kMiniEstInterval));
        if (sleepUnlessStopped(std::max<int32_t>(period, 1))) {
            return true;
        }
        if (parameters->getSLAVendorProp() == kStopRequested) {
            return false;
        }
    }
}

void tearDown() {
    LNKD_LOGE("Dvx disabled, starting cleanup...\n");
    stopHandlingMessages();
    SlaTcpSocketMonitor::finalize();
    RssiStateMonitor::finalize();  // writes to the engine's records
    SmartLinkSelection::finalize();
    SlaStatsImpl::instance()->enableSLA(false);
    IptablesManager::clean_DVX_iptables();
    for (const std::string& uid : Parameters::instance()->gamingUidList()) {
        killSocketsForUID(uid.c_str());
    }
    stopSocketThreads();
    SlaStatsImpl::finalize();
    LNKD_LOGI("Lnkd exiting");
}

}  // namespace

}  // namespace lnkd

int main() {
    lnkd::prepareSignals();
    lnkd::startUp();
    bool stopped = lnkd::runMainLoop();
    lnkd::tearDown();
    // Disabled by the property the process stays, or init would start it again at once.
    while (!stopped) {
        stopped = lnkd::sleepUnlessStopped(lnkd::kIdleSleepSeconds * 1000);
    }
    // The control thread may still run: no static object may be destroyed under it.
    _exit(0);
}
