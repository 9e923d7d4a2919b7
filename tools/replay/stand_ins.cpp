// SPDX-License-Identifier: Apache-2.0
#include "replay/stand_ins.h"

#include <cutils/properties.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <utility>

#include "aggregation/sla_stats_data.h"
#include "aggregation/sla_stats_impl.h"
#include "core/stop_request.h"
#include "core/thread.h"
#include "replay/clock.h"
#include "rules/iptables_manager.h"
#include "selection/socket_killing.h"
#include "selection/tcp_probe.h"

#define LNKD_LOG_TAG "DVX-Lnkd-iptablesManager"
#include "core/log.h"

namespace lnkd {

StandIns& standIns() {
    static StandIns all;
    return all;
}

// ---- Rules: a line where the daemon would change some.

IptablesManager::IptablesManager() = default;
IptablesManager::~IptablesManager() {}

IptablesManager* IptablesManager::instance() {
    static auto* const rules = new IptablesManager;
    return rules;
}

int32_t IptablesManager::set_SLS_interface(const char* /*name*/) {
    setReplayedTime(standIns().switchEnd);
    return 0;
}

int32_t IptablesManager::set_SLA_ratio_iptables(const LinkStatsMap& links,
                                                const InterfaceTable& table) {
    LNKD_LOGI("SEND SLA NDC COMMAND - PASS  (replayed) -F zelk_SLA");
    for (const auto& [name, link] : links) {
        if (table.count(name) != 0) {
            LNKD_LOGI("handle->interfaceRatio: %f handle->interfaceName: %s",
                      static_cast<double>(link->interfaceRatio), link->interfaceName);
        }
    }
    return 0;
}

int killSocketsForUID(const char* /*uid*/) {
    return 0;
}

// ---- Statistics: what the log says.

SlaStatsImpl* SlaStatsImpl::instance() {
    static auto* const engine = new SlaStatsImpl;
    return engine;
}

// Takes a link into the next pass, or out of it, as the log has measured it.
bool SlaStatsImpl::updateSlaInterfacemap(const char* name, bool add) {
    const MutexLock lock(statsMutex);
    lastRatioLogTime = 0;  // only passes that were logged are replayed
    m_slaInterfaceMap.erase(name);
    if (add) {
        auto link = std::make_unique<linkStatsWrapper_t>();
        snprintf(link->interfaceName, sizeof(link->interfaceName), "%s", name);
        link->statsData.reset(new SlaStatsData(nullptr, false));
        link->interfaceRatio = standIns().measured[name].oldShare;
        m_slaInterfaceMap[name] = std::move(link);
    }
    return true;
}

int32_t SlaStatsImpl::getSlaVoipState(char* /*address*/, char* /*port*/) {
    return -1;
}

void SlaStatsDataDeleter::operator()(SlaStatsData* reader) const {
    delete reader;
}

SlaStatsData::SlaStatsData(void* statsMapping, bool wlan) : statsBase(statsMapping), isWlan(wlan) {}
SlaStatsData::~SlaStatsData() {}

uint32_t SlaStatsData::linkRateEstimate(unsigned int* count, const char* name) {
    *count = UINT_MAX;
    return standIns().measured[name].rate;
}

// ---- Threads and probes: none runs, the log has their results.

// NOLINTNEXTLINE(performance-unnecessary-value-param): the daemon's own keeps it
Thread::Thread(std::function<void()> /*body*/) : m_joinable(true) {}
Thread::~Thread() {}
Thread::Thread(Thread&& other) noexcept
    : m_handle(other.m_handle), m_joinable(std::exchange(other.m_joinable, false)) {}
Thread& Thread::operator=(Thread&& other) noexcept {
    std::swap(m_joinable, other.m_joinable);
    return *this;
}
void Thread::join() {
    m_joinable = false;
}

int Tcping::updateTcpingRtt(sls_tcping_info* /*info*/, int /*penaltyMs*/) {
    return -1;
}

bool stopRequested() {
    return false;
}

}  // namespace lnkd

// ---- Settings: none of this machine's.

extern "C" int property_get(const char* /*key*/, char* value, const char* defaultValue) {
    snprintf(value, PROPERTY_VALUE_MAX, "%s", defaultValue != nullptr ? defaultValue : "");
    return static_cast<int>(strlen(value));
}

// The one file that the daemon's settings are read from; the linker sends the call here (--wrap).
extern "C" FILE* __real_fopen(const char* path, const char* mode);
extern "C" FILE* __wrap_fopen(const char* path, const char* mode);

extern "C" FILE* __wrap_fopen(const char* /*path*/, const char* mode) {
    return __real_fopen(lnkd::standIns().configurationFile.c_str(), mode);
}
