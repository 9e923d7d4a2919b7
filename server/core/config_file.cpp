// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

#include "core/parameters.h"
#include "core/text_values.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SlaParameters"
#include "core/log.h"

namespace lnkd {

namespace {

// A file beyond this is not a configuration but an accident; reading it whole could take all
// memory of a small phone.
constexpr size_t kLargestConfFile = 1024 * 1024;  // bytes

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

// Reads the whole file, false when it cannot be read or is too large.
bool readWhole(const char* path, std::string& content) {
    const std::unique_ptr<FILE, FileCloser> file{fopen(path, "re")};
    if (file == nullptr) {
        return false;
    }
    char block[4096];
    size_t n = 0;
    while ((n = fread(block, 1, sizeof(block), file.get())) > 0) {
        content.append(block, n);
        if (content.size() > kLargestConfFile) {
            errno = EFBIG;
            return false;
        }
    }
    return ferror(file.get()) == 0;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

const std::map<std::string, OperId>& operKeys() {
    static const std::map<std::string, OperId> keys = {
            {"SLAEnabled", kSlaEnabled},
            {"wifi_threshold", kWifiThreshold},
            {"wan_threshold", kWanThreshold},
            {"mini_est_interval", kMiniEstInterval},
            {"mini_stale_interval", kMiniStaleInterval},
            {"ideal_est_window", kIdealEstWindow},
            {"mini_rate_window", kMiniRateWindow},
            {"CellularSockAssignRate", kCellularSockAssignRate},
            {"SockActiveTime", kSockActiveTime},
            {"SockStaleTime", kSockStaleTime},
            {"update_pm_freq", kUpdatePmFreq},
    };
    return keys;
}

const std::map<std::string, uint32_t Parameters::*>& unsignedKeys() {
    static const std::map<std::string, uint32_t Parameters::*> keys = {
            {"estimate_pack_num", &Parameters::estimate_pack_num},
            {"min_ratio_change", &Parameters::min_ratio_change},
            {"best_est_cache_size", &Parameters::best_est_cache_size},
            {"init_wwan_percentage", &Parameters::init_wwan_percentage},
            {"rtt_entry_threshold", &Parameters::rtt_entry_threshold},
            {"rtt_exit_threshold", &Parameters::rtt_exit_threshold},
    };
    return keys;
}

const std::map<std::string, int32_t Parameters::*>& signedKeys() {
    static const std::map<std::string, int32_t Parameters::*> keys = {
            {"ping_period_ms", &Parameters::ping_period_ms},
            {"rtt_noresponse_timeout_ms", &Parameters::rtt_noresponse_timeout_ms},
            {"rtt_hist", &Parameters::rtt_hist},
            {"rtt_w2c_th_wifi_ms", &Parameters::rtt_w2c_th_wifi_ms},
            {"rtt_w2c_th_c_ms", &Parameters::rtt_w2c_th_c_ms},
            {"rtt_delta_ms", &Parameters::rtt_delta_ms},
            {"rtt_c2w_th_wifi_ms", &Parameters::rtt_c2w_th_wifi_ms},
            {"rtt_c2w_th_wifi_min_ms", &Parameters::rtt_c2w_th_wifi_min_ms},
            {"rtt_c2w_th_c_ms", &Parameters::rtt_c2w_th_c_ms},
            {"t_hyst_s", &Parameters::t_hyst_s},
            {"min_ping_times", &Parameters::min_ping_times},
            {"ping_interval_ms", &Parameters::ping_interval_ms},
            {"alpha_percent", &Parameters::alpha_percent},
            {"n_hyst", &Parameters::n_hyst},
            {"rtt_min_cap_ms", &Parameters::rtt_min_cap_ms},
            {"gaming_poll_freq_cnt", &Parameters::gaming_poll_freq_cnt},
    };
    return keys;
}

const std::map<std::string, std::string Parameters::*>& textKeys() {
    static const std::map<std::string, std::string Parameters::*> keys = {
            {"protocols", &Parameters::protocols},
            {"ports", &Parameters::ports},
            {"gaming_whitelist", &Parameters::gaming_whitelist},
            {"gaming_uid_list", &Parameters::gaming_uid_list},
    };
    return keys;
}

}  // namespace

void Parameters::readLnkdConfFile(const char* path) {
    std::string content;
    if (!readWhole(path, content)) {
        LNKD_LOGE("read lnkd conf file failed!");
        return;
    }
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < content.size()) {
        const size_t end = std::min(content.find('\n', start), content.size());
        std::string line = content.substr(start, end - start);
        start = end + 1;
        if (!trim(line).empty() && line.front() != '#') {
            lines.push_back(std::move(line));
        }
    }
    fromVector(lines);
}

std::string& Parameters::trim(std::string& text) {
    const size_t comment = text.find('#');
    if (comment != std::string::npos && comment > 0) {
        text.erase(comment);
    }
    size_t end = text.size();
    while (end > 0 && isBlank(text[end - 1])) {
        --end;
    }
    text.erase(end);
    size_t begin = 0;
    while (begin < text.size() && isBlank(text[begin])) {
        ++begin;
    }
    text.erase(0, begin);
    return text;
}

void Parameters::fromVector(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        const size_t equals = line.find('=');
        if (equals == std::string::npos) {
            continue;
        }
        std::string key = line.substr(0, equals);
        std::string value = line.substr(equals + 1);
        setValue(trim(key).c_str(), trim(value).c_str());
    }
}

bool Parameters::setValue(const char* key, const char* value) {
    return setNumber(key, value) || setText(key, value);
}

bool Parameters::setNumber(const std::string& key, const char* value) {
    const int32_t number = parseInt(value);
    if (const auto oper = operKeys().find(key); oper != operKeys().end()) {
        m_operValues[static_cast<size_t>(oper->second)].store(static_cast<uint32_t>(number),
                                                              std::memory_order_relaxed);
        return true;
    }
    if (const auto field = unsignedKeys().find(key); field != unsignedKeys().end()) {
        this->*field->second = static_cast<uint32_t>(number);
        return true;
    }
    if (const auto field = signedKeys().find(key); field != signedKeys().end()) {
        this->*field->second = number;
        return true;
    }
    if (key == "num_interfaces") {
        const MutexLock lock(m_tableMutex);
        num_interfaces = static_cast<uint32_t>(number);
        return true;
    }
    return false;
}

bool Parameters::setText(const std::string& key, const char* value) {
    if (const auto field = textKeys().find(key); field != textKeys().end()) {
        this->*field->second = value;
        return true;
    }
    if (key == "rtt_server") {
        setGamingRttServer(value);
        return true;
    }
    if (key == "uid_whitelist") {
        setuidwhitelist(value);
        return true;
    }
    constexpr char kInterfaceKey[] = "interface_";
    constexpr size_t kPrefix = sizeof(kInterfaceKey) - 1;
    if (key.size() == kPrefix + 1 && key.compare(0, kPrefix, kInterfaceKey) == 0 &&
        key[kPrefix] >= '0' && key[kPrefix] <= '3') {
        const MutexLock lock(m_tableMutex);
        m_ifaceParams[static_cast<size_t>(key[kPrefix] - '0')] = value;
        return true;
    }
    return false;
}

}  // namespace lnkd
