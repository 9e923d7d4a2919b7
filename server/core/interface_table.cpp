// SPDX-License-Identifier: Apache-2.0
#include <cutils/properties.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "core/parameters.h"
#include "core/text_values.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SlaParameters"
#include "core/log.h"

namespace lnkd {

namespace {

constexpr size_t kDescriptionFields = 9;
constexpr size_t kIfacesPropSize = 64;  // bytes, NUL included
constexpr size_t kModePropSize = 8;     // bytes, NUL included
constexpr size_t kLongestBssid = 12;    // hexadecimal digits, without colons
// A phone has a handful. Each one that is added costs commands, and the statistics of all anew.
constexpr size_t kMostInterfaces = 16;

template <size_t N>
void copyText(char (&field)[N], const std::string& text) {
    const size_t length = std::min(text.size(), N - 1);
    memcpy(field, text.data(), length);
    field[length] = '\0';
}

// What a name says about an interface of which nothing else is known.
struct NameDefaults {
    const char* metered;
    const char* isDefault;
    const char* fwmark;
    const char* slave;
};

NameDefaults defaultsFor(const std::string& name, const char* cellularMode) {
    if (hasPrefix(name, "wlan0")) {
        return {"0", "1", "0x5A", "0"};
    }
    if (hasPrefix(name, "wlan1")) {
        return {"0", "0", "0x5B", "1"};
    }
    if (isCellularName(name)) {
        return {cellularMode, "0", "0x5C", "0"};
    }
    return {"0", "0", "0x5A", "0"};
}

// The nine fields of a description, with no cost, no bias and no access point.
std::string descriptionFor(const std::string& name, const char* cellularMode) {
    const NameDefaults defaults = defaultsFor(name, cellularMode);
    std::string text;
    for (const char* field : {name.c_str(), defaults.metered, name.c_str(), defaults.fwmark,
                              defaults.isDefault, "0", "0", defaults.slave}) {
        text.append(field).append(",");
    }
    return text.append("ffffffffffff");
}

std::string propertyText(const char* key, const char* defaultValue) {
    char value[PROPERTY_VALUE_MAX];
    property_get(key, value, defaultValue);
    return value;
}

// Cuts a list to `size` bytes, NUL included, after the last whole name that fits: half a name
// would be another interface.
std::string cutToNames(const std::string& list, size_t size) {
    if (list.size() < size) {
        return list;
    }
    const size_t comma = list.rfind(',', size - 1);
    return comma == std::string::npos ? std::string() : list.substr(0, comma);
}

std::unique_ptr<InterfaceInfo_t> builtInInterface(const char* name, const char* fwmark,
                                                  bool metered) {
    auto record = std::make_unique<InterfaceInfo_t>();
    copyText(record->name, name);
    copyText(record->routeTable, name);
    copyText(record->fwmark, fwmark);
    record->isDefault = true;
    record->metered = metered;
    return record;
}

}  // namespace

InterfaceSnapshot Parameters::interfaces() const {
    const MutexLock lock(m_tableMutex);
    return m_interfaceInfoMap;
}

std::shared_ptr<const InterfaceInfo_t> Parameters::findInterface(const std::string& name) const {
    const InterfaceSnapshot table = interfaces();
    const auto entry = table->find(name);
    return entry == table->end() ? nullptr : entry->second;
}

uint32_t Parameters::numInterfaces() const {
    const MutexLock lock(m_tableMutex);
    return num_interfaces;
}

std::array<std::string, 4> Parameters::ifaceParams() const {
    const MutexLock lock(m_tableMutex);
    return m_ifaceParams;
}

std::unique_ptr<InterfaceInfo_t> Parameters::parseInterfaceParams(const std::string& description) {
    const std::vector<std::string> fields = splitList(description);
    int count = 0;
    for (const std::string& field : fields) {
        LNKD_LOGI("parseInterfaceParams %s %d %d ", field.c_str(), ++count,
                  static_cast<int>(kDescriptionFields));
    }
    if (fields.size() == kDescriptionFields) {
        auto record = std::make_unique<InterfaceInfo_t>();
        copyText(record->name, fields[0]);
        record->metered = parseInt(fields[1].c_str()) != 0;
        copyText(record->routeTable, fields[2]);
        copyText(record->fwmark, fields[3]);
        record->isDefault = parseInt(fields[4].c_str()) != 0;
        record->cost = parseInt(fields[5].c_str());
        record->bias = parseInt(fields[6].c_str());
        record->slave = parseInt(fields[7].c_str()) != 0;
        copyText(record->bssid, fields[8]);
        if (validateInterfaceParams(record.get())) {
            return record;
        }
    }
    LNKD_LOGE("%s Check lnkd.conf for interface errors", "parseInterfaceParams");
    return nullptr;
}

bool Parameters::validateInterfaceParams(const InterfaceInfo_t* record) {
    static constexpr char kCaller[] = "validateInterfaceParams";
    if (record == nullptr) {
        LNKD_LOGE("%s Interface Obj is NULL", kCaller);
        return false;
    }
    const bool hasName = record->name[0] != '\0';
    const bool hasTable = record->routeTable[0] != '\0';
    const bool hasMark = record->fwmark[0] != '\0';
    if (!hasName) {
        LNKD_LOGE("%s Interface name is NULL", kCaller);
    }
    if (!hasTable) {
        LNKD_LOGE("%s Interface routeTable is NULL", kCaller);
    }
    if (!hasMark) {
        LNKD_LOGE("%s Interface fwmark is NULL", kCaller);
    }
    if (!hasName || !hasTable || !hasMark) {
        return false;
    }
    if (!isInterfaceName(record->name)) {
        LNKD_LOGE("%s Interface name is not valid: %s", kCaller, record->name);
        return false;
    }
    if (!isRouteTableName(record->routeTable)) {
        LNKD_LOGE("%s Interface routeTable is not valid: %s", kCaller, record->routeTable);
        return false;
    }
    if (!parseFwmark(record->fwmark).has_value()) {
        LNKD_LOGE("%s Interface fwmark is not valid: %s", kCaller, record->fwmark);
        return false;
    }
    LNKD_LOGI("%s Interface name is       %s", kCaller, record->name);
    LNKD_LOGI("%s Interface routeTable is %s", kCaller, record->routeTable);
    LNKD_LOGI("%s Interface fwmark is     %s", kCaller, record->fwmark);
    LNKD_LOGI("%s Interface default is    %d", kCaller, record->isDefault);
    LNKD_LOGI("%s Interface metered is    %d", kCaller, record->metered);
    LNKD_LOGI("%s Interface cost is       %d", kCaller, record->cost);
    LNKD_LOGI("%s Interface bias is       %d", kCaller, record->bias);
    return true;
}

bool Parameters::addNewInterfacetoMap(InterfaceTable& table,
                                      std::unique_ptr<InterfaceInfo_t> record) {
    if (!validateInterfaceParams(record.get())) {
        LNKD_LOGE("%s Add interface failed ", "addNewInterfacetoMap");
        return false;
    }
    const std::string name = record->name;
    table[name] = std::move(record);
    LNKD_LOGI("%s Added %s to list of interfaces ", "addNewInterfacetoMap", name.c_str());
    return true;
}

bool Parameters::delOldInterfacetoMap(InterfaceTable& table, const char* name) {
    table.erase(name);
    return true;
}

void Parameters::populatIfaceslist() {
    m_ifaceList = splitDistinct(m_ifaces);
    if (m_ifaceList.size() > m_ifaceParams.size()) {
        const auto surplus = m_ifaceList.begin() + static_cast<ptrdiff_t>(m_ifaceParams.size());
        std::string names;
        std::for_each(surplus, m_ifaceList.end(),
                      [&names](const std::string& name) { names.append(" ").append(name); });
        LNKD_LOGE("%s more than %zu interfaces, left out:%s", "populatIfaceslist",
                  m_ifaceParams.size(), names.c_str());
        m_ifaceList.erase(surplus, m_ifaceList.end());
    }
    num_interfaces = static_cast<uint32_t>(m_ifaceList.size());
    for (size_t i = 0; i < m_ifaceList.size(); ++i) {
        m_ifaceParams[i] = descriptionFor(m_ifaceList[i], m_cellularMode.c_str());
        LNKD_LOGI("SLA m_ifaceParams[i] = %s", m_ifaceParams[i].c_str());
    }
}

void Parameters::updateIfaces() {
    if (m_ifacesProp.empty()) {
        m_ifacesProp = cutToNames(propertyText("vendor.sla.ifaces", ""), kIfacesPropSize);
        m_modeProp = propertyText("vendor.sla.mode", "1").substr(0, kModePropSize - 1);
        LNKD_LOGI("%s %s mode = %s", "updateIfaces", m_ifacesProp.c_str(), m_modeProp.c_str());
        m_ifaces = m_ifacesProp;
        populatIfaceslist();
    }
}

void Parameters::fillInterfaceTable() {
    auto table = std::make_shared<InterfaceTable>();
    uint32_t added = 0;
    for (uint32_t i = 0; i < num_interfaces; ++i) {
        LNKD_LOGI(" SLA processing iface %d", static_cast<int>(i));
        auto record = parseInterfaceParams(m_ifaceParams[i]);
        if (record != nullptr && addNewInterfacetoMap(*table, std::move(record))) {
            ++added;
        }
    }
    LNKD_LOGI(" SlaParameters added ifaces = %d getNumInterfaces =%d", static_cast<int>(added),
              static_cast<int>(num_interfaces));
    if (added != num_interfaces) {
        LNKD_LOGE(
                "%s Error when reading interfaces from config file - reset to defaults wlan0 "
                "and rmnet_data0",
                "Parameters");
        table->clear();
        addNewInterfacetoMap(*table, builtInInterface("wlan0", "0x5A", false));
        addNewInterfacetoMap(*table, builtInInterface("rmnet_data0", "0x5C", true));
    }
    m_interfaceInfoMap = std::move(table);
}

void Parameters::UpdateInterface(const char* names, bool up) {
    const MutexLock lock(m_tableMutex);
    auto table = std::make_shared<InterfaceTable>(*m_interfaceInfoMap);
    if (!up) {
        delOldInterfacetoMap(*table, names);
        m_interfaceInfoMap = std::move(table);
        LNKD_LOGI("m_interfaceInfoMap del %s success！", names);
        return;
    }
    m_ifaces = names;
    populatIfaceslist();
    for (uint32_t i = 0; i < num_interfaces; ++i) {
        auto record = parseInterfaceParams(m_ifaceParams[i]);
        if (record == nullptr) {
            continue;
        }
        const std::string name = record->name;
        if (table->size() >= kMostInterfaces && table->count(name) == 0) {
            LNKD_LOGE("%s more than %zu interfaces, refused: %s", "UpdateInterface",
                      kMostInterfaces, name.c_str());
            continue;
        }
        (*table)[name] = std::move(record);
        LNKD_LOGI("m_interfaceInfoMap add %s success！", name.c_str());
    }
    m_interfaceInfoMap = std::move(table);
}

void Parameters::UpdateInterfaceMode(const char* mode) {
    if (!isAllDigits(mode)) {
        LNKD_LOGE("%s mode is not a number: %s", "UpdateInterfaceMode", mode);
        return;
    }
    const MutexLock lock(m_tableMutex);
    if (m_cellularMode == mode) {
        return;
    }
    m_cellularMode = mode;
    const bool metered = parseInt(mode) != 0;
    auto table = std::make_shared<InterfaceTable>(*m_interfaceInfoMap);
    for (auto& [name, record] : *table) {
        if (isCellularName(name)) {
            auto changed = std::make_shared<InterfaceInfo_t>(*record);
            changed->metered = metered;
            record = std::move(changed);
        }
    }
    m_interfaceInfoMap = std::move(table);
}

void Parameters::UpdateInterfaceBssid(const char* bssids) {
    static constexpr char kCaller[] = "UpdateInterfaceBssid";
    std::string text = bssids;
    text.erase(std::remove(text.begin(), text.end(), ':'), text.end());
    LNKD_LOGI("%s bssid is %s\n", kCaller, text.c_str());
    const std::vector<std::string> fields = splitList(text);
    for (const std::string& field : fields) {
        if (field.size() > kLongestBssid) {
            LNKD_LOGE("%s token length error is %lu", kCaller,
                      static_cast<unsigned long>(field.size()));
            return;
        }
    }
    const MutexLock lock(m_tableMutex);
    auto table = std::make_shared<InterfaceTable>(*m_interfaceInfoMap);
    constexpr const char* kPrefixes[] = {"wlan0", "wlan1"};
    for (size_t i = 0; i < std::min(fields.size(), std::size(kPrefixes)); ++i) {
        for (auto& [name, record] : *table) {
            if (!fields[i].empty() && hasPrefix(name, kPrefixes[i])) {
                auto changed = std::make_shared<InterfaceInfo_t>(*record);
                copyText(changed->bssid, fields[i]);
                record = std::move(changed);
            }
        }
    }
    m_interfaceInfoMap = std::move(table);
}

}  // namespace lnkd
