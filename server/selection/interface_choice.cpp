// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "core/parameters.h"
#include "core/stop_request.h"
#include "rules/iptables_manager.h"
#include "selection/smart_link_selection.h"
#include "selection/socket_killing.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SlaPing"
#include "core/log.h"

namespace lnkd {

namespace {

bool isWifi(const InterfaceRtt& record) {
    return strncmp(record.m_ifaceName, "wlan", 4) == 0;
}

// Milliseconds between two times of day, in 32 bits: the wrap is meant. The difference of the
// microseconds is divided on its own, truncating toward zero.
int32_t elapsedMs(const timeval& from, const timeval& to) {
    const auto seconds = static_cast<uint32_t>(to.tv_sec) - static_cast<uint32_t>(from.tv_sec);
    const auto ms = static_cast<int32_t>((to.tv_usec - from.tv_usec) / 1000);
    return static_cast<int32_t>(seconds * 1000U + static_cast<uint32_t>(ms));
}

}  // namespace

void SmartLinkSelection::slsChooseInterface() {
    const Parameters* const parameters = Parameters::instance();
    if (parameters->isGamingRunning() || parameters->isVoipRunning()) {
        calcInterface();
        setVoipIpAddressAndPort();
    }
}

int SmartLinkSelection::calcInterface() {
    static constexpr char kCaller[] = "calcInterface";
    // A probe of a slow target may hold it for seconds.
    if (!pingMutex.lockUnless(stopRequested)) {
        return 0;
    }
    const MutexLock lock(pingMutex, std::adopt_lock);
    InterfaceRtt* const previous = m_currentInterface;
    InterfaceRtt* const best = getFastestInterface();
    if (best == nullptr) {
        LNKD_LOGE("%s SLA_RTT Fastest Interface returned NULL", kCaller);
        return 0;
    }
    m_currentInterface = best;
    if (!hystCheckAndUpdate(m_hystWindowStart) && previous != nullptr) {
        m_currentInterface = previous;
        return 0;
    }
    LNKD_LOGI("%s SLA_RTT_SELECTED current =  %s , prvious = %s", kCaller,
              m_currentInterface->m_ifaceName,
              previous != nullptr ? previous->m_ifaceName : "NULL");
    if (m_currentInterface != previous) {
        LNKD_LOGI("%s SLA_RTT_SELECTED perform switch %s ", kCaller,
                  m_currentInterface->m_ifaceName);
        performSwitch();
    }
    return 0;
}

void SmartLinkSelection::performSwitch() {
    IptablesManager::instance()->set_SLS_interface(m_currentInterface->m_ifaceName);
    for (const std::string& uid : Parameters::instance()->gamingUidList()) {
        LNKD_LOGI("SLA_RTT_SELECTED  UID destroying sockets = %s", uid.c_str());
        killSocketsForUID(uid.c_str());
    }
    gettimeofday(&m_hystWindowStart, nullptr);
    LNKD_LOGI("SLA_LINK resetting hystWindow, current switch count = %d-----<*>", m_switchCount);
    ++m_switchCount;
}

InterfaceRtt* SmartLinkSelection::getFastestInterface() {
    static constexpr char kCaller[] = "getFastestInterface";
    InterfaceRtt* best = nullptr;
    int32_t bestLevel = 0;
    const MutexLock lock(mapMutex);
    for (const auto& [name, record] : m_slsInterfaceMap) {
        const int32_t level = record->m_networkLevel;
        LNKD_LOGI("%s (interface %s) (networklevel %d)", kCaller, record->m_ifaceName, level);
        if (level == InterfaceRtt::kFailed && record.get() == m_currentInterface) {
            m_switchCount = 0;
        }
        if (level > bestLevel) {
            best = record.get();
            bestLevel = level;
        } else if (level == bestLevel) {
            if (m_currentInterface != nullptr) {
                best = isWifi(*m_currentInterface) ? m_currentInterface : record.get();
            } else if (!record->isSlave()) {
                best = record.get();
            }
        }
    }
    if (best != nullptr) {
        LNKD_LOGI("%s (best Interface %s) (networklevel %d)", kCaller, best->m_ifaceName,
                  best->m_networkLevel);
    }
    return best;
}

bool SmartLinkSelection::hystCheckAndUpdate(timeval& windowStart) {
    const Parameters* const parameters = Parameters::instance();
    timeval now{};
    gettimeofday(&now, nullptr);
    const int32_t elapsed = elapsedMs(windowStart, now);
    const auto delta = static_cast<int32_t>(static_cast<uint32_t>(parameters->t_hyst_s) * 1000U);
    if (elapsed >= delta) {
        LNKD_LOGI("SLA_LINK time elapsed, ready for switch calc %d  config delta %d", elapsed,
                  delta);
        windowStart = now;
        m_switchCount = 0;
        return true;
    }
    if (m_switchCount >= parameters->n_hyst) {
        LNKD_LOGI("SLA_LINK in cycle, switch not allowed-----*** calc %d  config delta %d", elapsed,
                  delta);
        return false;
    }
    LNKD_LOGI("SLA_LINK in cycle, but good to switch - calc %d  config delta %d", elapsed, delta);
    return true;
}

}  // namespace lnkd
