// SPDX-License-Identifier: Apache-2.0
#include "selection/smart_link_selection.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "aggregation/sla_stats_impl.h"
#include "core/parameters.h"
#include "core/stop_request.h"
#include "core/text_values.h"
#include "selection/tcp_probe.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SlaPing"
#include "core/log.h"

namespace lnkd {

FairMutex SmartLinkSelection::pingMutex;
Mutex SmartLinkSelection::mapMutex;

namespace {

enum class Stage { kNotOpen, kOpen, kFinalized };

Mutex instanceMutex;
std::atomic<SmartLinkSelection*> theInstance{nullptr};
Stage stage GUARDED_BY(instanceMutex) = Stage::kNotOpen;

// A cut name would be another interface.
bool fitsRecord(const char* name) {
    if (strlen(name) < InterfaceRtt::kNameSize) {
        return true;
    }
    LNKD_LOGE("interface name is too long for link selection: %s", name);
    return false;
}

}  // namespace

int SmartLinkSelection::Init() {
    const MutexLock lock(instanceMutex);
    if (stage != Stage::kNotOpen) {
        return -1;
    }
    stage = Stage::kOpen;
    return 0;
}

bool SmartLinkSelection::isInstance() {
    return theInstance.load(std::memory_order_acquire) != nullptr;
}

SmartLinkSelection* SmartLinkSelection::instance() {
    const MutexLock lock(instanceMutex);
    if (!isInstance() && stage == Stage::kOpen) {
        auto* const built = new SmartLinkSelection;
        built->initPingThreads();
        theInstance.store(built, std::memory_order_release);
    }
    return theInstance.load(std::memory_order_acquire);
}

void SmartLinkSelection::finalize() {
    const MutexLock lock(instanceMutex);
    stage = Stage::kFinalized;
    SmartLinkSelection* const engine = theInstance.exchange(nullptr, std::memory_order_acq_rel);
    if (engine != nullptr) {
        engine->threadStop();
        engine->threadDestory();
        delete engine;
    }
}

void SmartLinkSelection::endProbes() {
    const MutexLock lock(mapMutex);
    if (SmartLinkSelection* const engine = theInstance.load(std::memory_order_acquire)) {
        for (const auto& [name, record] : engine->m_slsInterfaceMap) {
            record->m_liveSocket.end();
        }
    }
}

SmartLinkSelection::SmartLinkSelection() {
    gettimeofday(&m_hystWindowStart, nullptr);
}

void SmartLinkSelection::initPingThreads() {
    threadDestory();
    destoryPingThreads();
    InterfaceMap fresh;
    const InterfaceSnapshot table = Parameters::instance()->interfaces();
    for (const auto& [name, record] : *table) {
        if (fitsRecord(name.c_str())) {
            fresh[name] = std::make_unique<InterfaceRtt>(name.c_str(), false);
        }
    }
    const MutexLock pingLock(pingMutex);
    m_switchCount = 0;
    const MutexLock mapLock(mapMutex);
    m_slsInterfaceMap = std::move(fresh);
}

void SmartLinkSelection::createRttThreads() {
    const MutexLock lock(mapMutex);
    for (const auto& [name, record] : m_slsInterfaceMap) {
        startThread(*record);
    }
}

void SmartLinkSelection::threadStop() {
    const MutexLock lock(mapMutex);
    for (const auto& [name, record] : m_slsInterfaceMap) {
        record->setPingEnabled(false);
    }
}

void SmartLinkSelection::threadResume() {
    const MutexLock lock(mapMutex);
    for (const auto& [name, record] : m_slsInterfaceMap) {
        record->setPingEnabled(true);
    }
}

void SmartLinkSelection::threadDestory() {
    std::vector<Thread> ending;
    {
        const MutexLock lock(mapMutex);
        for (const auto& [name, record] : m_slsInterfaceMap) {
            record->setThreadRunning(false);
            ending.push_back(std::move(record->m_thread));
        }
    }
    for (Thread& thread : ending) {
        thread.join();
    }
}

void SmartLinkSelection::destoryPingThreads() {
    InterfaceMap released;
    const MutexLock pingLock(pingMutex);
    m_currentInterface = nullptr;
    const MutexLock mapLock(mapMutex);
    m_slsInterfaceMap.swap(released);
}

void SmartLinkSelection::startThread(InterfaceRtt& record) {
    record.setThreadRunning(true);
    if (record.m_thread.joinable()) {
        return;
    }
    record.m_liveSocket.allow();
    record.m_thread = Thread([&record] { makeRawPingFunc(&record); });
    if (!record.m_thread.joinable()) {
        LNKD_LOGE("no probe thread for interface %s", record.m_ifaceName);
    }
}

void SmartLinkSelection::endThread(InterfaceRtt& record) {
    record.setPingEnabled(false);
    record.setThreadRunning(false);
    record.m_thread.join();
}

bool SmartLinkSelection::updateSlsInterfacemap(const char* name, bool add) {
    const Parameters* const parameters = Parameters::instance();
    if (!parameters->isVoipRunning() && !parameters->isGamingRunning()) {
        return true;
    }
    if (add) {
        addInterface(name);
    } else {
        removeInterface(name);
    }
    return true;
}

void SmartLinkSelection::addInterface(const char* name) {
    // The interface commands pass on what they were sent; only what became a record is real.
    if (Parameters::instance()->findInterface(name) == nullptr || !fitsRecord(name)) {
        return;
    }
    if (const auto old = takeRecord(name)) {
        endThread(*old);
    }
    const MutexLock pingLock(pingMutex);
    const MutexLock mapLock(mapMutex);
    m_slsInterfaceMap[name] = std::make_unique<InterfaceRtt>(name, true);
    for (const auto& [key, record] : m_slsInterfaceMap) {
        startThread(*record);
    }
    LNKD_LOGI("m_slsInterfaceMap add %s success！", name);
}

void SmartLinkSelection::removeInterface(const char* name) {
    if (const auto record = takeRecord(name)) {
        endThread(*record);
    }
    LNKD_LOGI("m_slsInterfaceMap del %s success！", name);
}

std::unique_ptr<InterfaceRtt> SmartLinkSelection::takeRecord(const std::string& name) {
    const MutexLock pingLock(pingMutex);
    const MutexLock mapLock(mapMutex);
    auto node = m_slsInterfaceMap.extract(name);
    if (node.empty()) {
        return nullptr;
    }
    if (m_currentInterface == node.mapped().get()) {
        m_currentInterface = nullptr;
    }
    return std::move(node.mapped());
}

void SmartLinkSelection::setRssiPenalty(const std::string& name, int32_t penaltyMs) {
    SmartLinkSelection* const engine = theInstance.load(std::memory_order_acquire);
    if (engine == nullptr) {
        return;
    }
    // Inside the lock: a record may be taken away at any moment.
    const MutexLock lock(mapMutex);
    const auto record = engine->m_slsInterfaceMap.find(name);
    if (record != engine->m_slsInterfaceMap.end()) {
        record->second->m_rssiPenaltyMs.store(penaltyMs, std::memory_order_relaxed);
    }
}

void SmartLinkSelection::setVoipIpAddressAndPort() {
    Parameters* const parameters = Parameters::instance();
    if (!parameters->isVoipRunning() || parameters->probeTarget().server != kDefaultRttServer) {
        return;  // before the module's file is read
    }
    char address[kVoipAddressSize] = {};
    char port[kVoipPortSize] = {};
    SlaStatsImpl::getSlaVoipState(address, port);
    // The address is an unsigned 32-bit number, so one beyond 31 bits is no overflow.
    const auto a = static_cast<uint32_t>(strtoul(address, nullptr, 10));
    const auto p = static_cast<uint32_t>(parseInt(port)) & 0xFFFFU;
    if (a == 0 || p == 0) {
        return;
    }
    // Both are in network byte order, read as little-endian numbers.
    char server[sizeof("255.255.255.255")];
    snprintf(server, sizeof(server), "%u.%u.%u.%u", a & 0xFFU, a >> 8 & 0xFFU, a >> 16 & 0xFFU,
             a >> 24);
    parameters->replaceProbeTarget(kDefaultRttServer, {server, (p & 0xFFU) << 8 | p >> 8});
}

void* makeRawPingFunc(void* arg) {
    auto* const record = static_cast<InterfaceRtt*>(arg);
    const Parameters* const parameters = Parameters::instance();
    const int64_t periodMs = std::max<int32_t>(parameters->ping_interval_ms, 1);
    Tcping tcping;
    sls_tcping_info info{};
    info.ifaceName = record->m_ifaceName;
    info.liveSocket = &record->m_liveSocket;
    for (;;) {
        {
            const MutexLock lock(SmartLinkSelection::pingMutex);
            if (!record->isThreadRunning()) {
                return arg;
            }
            if (record->isPingEnabled() && !stopRequested()) {
                const ProbeTarget target = parameters->probeTarget();
                info.serverIp = target.server.c_str();
                info.port = static_cast<int32_t>(target.port);
                const int32_t penalty = record->m_rssiPenaltyMs.load(std::memory_order_relaxed);
                const int rtt = tcping.updateTcpingRtt(&info, penalty);
                if (record->isThreadRunning()) {  // or the probe was ended: it says nothing
                    record->setSpeed(rtt);
                }
            }
        }
        record->sleepWhileRunning(periodMs);
    }
}

}  // namespace lnkd
