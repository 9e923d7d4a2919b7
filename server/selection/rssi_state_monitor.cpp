// SPDX-License-Identifier: Apache-2.0
#include "selection/rssi_state_monitor.h"

#include <chrono>
#include <cstring>
#include <string>

#include "core/parameters.h"
#include "selection/smart_link_selection.h"
#include "selection/socket_killing.h"
#include "wificond/net/netlink_utils.h"

#define LNKD_LOG_TAG "DVX-Lnkd-RssiStateMonitor"
#include "core/log.h"

namespace lnkd {

using android::wificond::NetlinkUtils;

namespace {

constexpr std::chrono::seconds kPollInterval(1);

Mutex instanceMutex;
RssiStateMonitor* theInstance GUARDED_BY(instanceMutex) = nullptr;

bool isAssociatedWifi(const InterfaceInfo_t& record) {
    return strncmp(record.name, "wlan", 4) == 0 && record.bssid[0] != '\0' &&
           strncmp(record.bssid, "ffffffffffff", 12) != 0;
}

}  // namespace

RssiStateMonitor* RssiStateMonitor::instance() {
    const MutexLock lock(instanceMutex);
    if (theInstance == nullptr) {
        theInstance = new RssiStateMonitor;
    }
    return theInstance;
}

void RssiStateMonitor::finalize() {
    const MutexLock lock(instanceMutex);
    delete theInstance;
    theInstance = nullptr;
}

RssiStateMonitor::RssiStateMonitor() {
    NetlinkUtils::instance()->Start();
    m_pollThread = Thread([this] { run(); });
    if (!m_pollThread.joinable()) {
        LNKD_LOGE("no thread for the signal monitor");
    }
}

RssiStateMonitor::~RssiStateMonitor() {
    m_running = false;  // before the lock: the look that holds it ends with its present query
    NetlinkUtils::instance()->Cancel();
    {
        const MutexLock lock(m_mutex);
        for (const std::string& uid : Parameters::instance()->gamingUidList()) {
            LNKD_LOGI("VOIP UID destroying sockets = %s", uid.c_str());
            killSocketsForUID(uid.c_str());
        }
    }
    m_cond.notify_all();
    m_pollThread.join();
}

void RssiStateMonitor::run() {
    const MutexLock lock(m_mutex);
    while (m_running) {
        poll();
        const auto next = std::chrono::steady_clock::now() + kPollInterval;
        while (m_running && m_cond.waitUntil(m_mutex, next)) {
        }
    }
}

int32_t RssiStateMonitor::penaltyFor(int32_t rssi) {
    if (rssi >= -64 && rssi <= -1) {
        return 0;
    }
    if (rssi >= -75) {
        return 60;
    }
    return rssi >= -85 ? 120 : 300;
}

void RssiStateMonitor::poll() const {
    const InterfaceSnapshot table = Parameters::instance()->interfaces();
    for (const auto& [name, record] : *table) {
        if (!m_running) {
            return;
        }
        if (!isAssociatedWifi(*record)) {
            continue;
        }
        const int32_t rssi = NetlinkUtils::instance()->GetStationInfo(record->bssid, name.c_str());
        if (!m_running) {
            return;  // it was ended, and says nothing
        }
        if (rssi > 0) {
            LNKD_LOGE("%s interface = %s currentrssi > 0", "poll", name.c_str());
            continue;
        }
        LNKD_LOGI("%s interface = %s, rssi = %d", "poll", name.c_str(), rssi);
        SmartLinkSelection::setRssiPenalty(name, penaltyFor(rssi));
    }
}

}  // namespace lnkd
