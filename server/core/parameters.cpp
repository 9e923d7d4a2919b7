// SPDX-License-Identifier: Apache-2.0
#include "core/parameters.h"

#include <cutils/properties.h>

#include "core/config_file.h"
#include "core/text_values.h"

namespace lnkd {

Parameters* Parameters::instance() {
    static Parameters* const parameters = [] {
        auto* built = new Parameters;  // lives as long as the process: threads never lose it
        built->load();
        built->populateuidwhitelist();
        return built;
    }();
    return parameters;
}

Parameters::Parameters() : m_interfaceInfoMap(std::make_shared<InterfaceTable>()) {
    m_operValues[kWifiThreshold] = 1600;
    m_operValues[kWanThreshold] = 500;
    m_operValues[kMiniEstInterval] = 1000;
    m_operValues[kMiniStaleInterval] = 1500;
    m_operValues[kIdealEstWindow] = 500;
    m_operValues[kMiniRateWindow] = 50;
    m_operValues[kCellularSockAssignRate] = 50;
    m_operValues[kSockActiveTime] = 2000;
    m_operValues[kUpdatePmFreq] = 500;
    m_operValues[14] = 1;  // has no name and no reader
}

void Parameters::load() {
    getSLAVendorProp();
    readLnkdConfFile(kConfFile);
    const MutexLock lock(m_tableMutex);
    updateIfaces();
    fillInterfaceTable();
}

uint32_t Parameters::get(OperId id) const {
    if (id < 0 || id >= kOperCount) {
        return UINT32_MAX;
    }
    return m_operValues[static_cast<size_t>(id)].load(std::memory_order_relaxed);
}

int32_t Parameters::getSLAVendorProp() {
    char value[PROPERTY_VALUE_MAX];
    property_get("vendor.sla.enabled", value, "0");
    const int32_t enabled = parseInt(value);
    m_operValues[kSlaEnabled].store(static_cast<uint32_t>(enabled), std::memory_order_relaxed);
    return enabled;
}

void Parameters::setGamingRttServer(const char* server) {
    if (server != nullptr) {
        const MutexLock lock(m_textMutex);
        rtt_server = server;
    }
}

void Parameters::setProbeTarget(const ProbeTarget& target) {
    const MutexLock lock(m_textMutex);
    rtt_server = target.server;
    rttServerPort = target.port;
}

bool Parameters::replaceProbeTarget(const char* server, const ProbeTarget& target) {
    const MutexLock lock(m_textMutex);
    if (rtt_server != server) {
        return false;
    }
    rtt_server = target.server;
    rttServerPort = target.port;
    return true;
}

ProbeTarget Parameters::probeTarget() const {
    const MutexLock lock(m_textMutex);
    return {rtt_server, rttServerPort};
}

}  // namespace lnkd
