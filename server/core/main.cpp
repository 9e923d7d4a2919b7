// SPDX-License-Identifier: Apache-2.0
// Puts the daemon together: start-up, main loop, teardown. The one file of core that knows the
// subsystems above it.
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>

#include "aggregation/sla_stats_impl.h"
#include "control/socket_server.h"
#include "core/parameters.h"
#include "core/single_instance.h"
#include "core/stop_request.h"
#include "rules/iptables_manager.h"
#include "selection/rssi_state_monitor.h"
#include "selection/smart_link_selection.h"
#include "selection/socket_killing.h"
#include "selection/tcp_socket_monitor.h"

#define LNKD_LOG_TAG "DVX-Lnkd-daemon"
#include "core/log.h"

namespace lnkd {

namespace {

using std::chrono::milliseconds;

constexpr int32_t kStopRequested = 2;  // vendor.sla.enabled
constexpr std::chrono::seconds kIdleSleep(600);

// Opens what is closed of the descriptors 0 to 2: a file that got such a number would be written
// to by whoever logs an error.
void openStandardDescriptors() {
    int fd = 0;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) {
        close(fd);
    }
}

void prepareSignals() {
    blockStopSignals();
    signal(SIGPIPE, SIG_IGN);
    signal(SIGCHLD, SIG_DFL);  // ignored, as some parents leave it, nobody could wait for a child
}

void startUp() {
    LNKD_LOGI("Lnkd (SLA+SLS) 3.0.4.5 starting daemon");
    Parameters* const parameters = Parameters::instance();
    IptablesManager::instance();
    SmartLinkSelection::Init();  // before the first message, which may be a game's
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
        if (waitForStopSignal(milliseconds(std::max<int32_t>(period, 1)))) {
            return true;
        }
        if (parameters->getSLAVendorProp() == kStopRequested) {
            requestStop();
            return false;
        }
    }
}

void tearDown() {
    LNKD_LOGE("Dvx disabled, starting cleanup...\n");
    SmartLinkSelection::endProbes();  // a handler in hand may wait for one
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
    lnkd::openStandardDescriptors();
    lnkd::prepareSignals();
    android::base::unique_fd lock;
    if (lnkd::takeInstanceLock(lock) == lnkd::InstanceLock::kHeld) {
        LNKD_LOGE("another lnkd runs here, this one ends");
        return 1;
    }
    lnkd::startUp();
    bool stopped = lnkd::runMainLoop();
    lnkd::tearDown();
    lock.reset();
    // Disabled by the property the process stays, or init would start it again at once.
    while (!stopped) {
        stopped = lnkd::waitForStopSignal(lnkd::kIdleSleep);
    }
    // The control thread may still run: no static object may be destroyed under it.
    _exit(0);
}
