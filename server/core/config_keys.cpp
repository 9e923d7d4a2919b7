// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "core/parameters.h"
#include "core/text_values.h"

namespace lnkd {

template <size_t slot>
void Parameters::setDescription(const char* description) {
    const MutexLock lock(m_tableMutex);
    m_ifaceParams[slot] = description;
}

void Parameters::setNumInterfaces(const char* number) {
    const MutexLock lock(m_tableMutex);
    num_interfaces = static_cast<uint32_t>(parseInt(number));
}

const std::vector<Parameters::ConfigKey>& Parameters::configKeys() {
    using P = Parameters;
    static const std::vector<ConfigKey> keys = {
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

            {"estimate_pack_num", &P::estimate_pack_num},
            {"min_ratio_change", &P::min_ratio_change},
            {"best_est_cache_size", &P::best_est_cache_size},
            {"init_wwan_percentage", &P::init_wwan_percentage},
            {"rtt_entry_threshold", &P::rtt_entry_threshold},
            {"rtt_exit_threshold", &P::rtt_exit_threshold},

            {"ping_period_ms", &P::ping_period_ms},
            {"rtt_noresponse_timeout_ms", &P::rtt_noresponse_timeout_ms},
            {"rtt_hist", &P::rtt_hist},
            {"rtt_w2c_th_wifi_ms", &P::rtt_w2c_th_wifi_ms},
            {"rtt_w2c_th_c_ms", &P::rtt_w2c_th_c_ms},
            {"rtt_delta_ms", &P::rtt_delta_ms},
            {"rtt_c2w_th_wifi_ms", &P::rtt_c2w_th_wifi_ms},
            {"rtt_c2w_th_wifi_min_ms", &P::rtt_c2w_th_wifi_min_ms},
            {"rtt_c2w_th_c_ms", &P::rtt_c2w_th_c_ms},
            {"t_hyst_s", &P::t_hyst_s},
            {"min_ping_times", &P::min_ping_times},
            {"ping_interval_ms", &P::ping_interval_ms},
            {"alpha_percent", &P::alpha_percent},
            {"n_hyst", &P::n_hyst},
            {"rtt_min_cap_ms", &P::rtt_min_cap_ms},
            {"gaming_poll_freq_cnt", &P::gaming_poll_freq_cnt},

            {"protocols", &P::protocols},
            {"ports", &P::ports},
            {"gaming_whitelist", &P::gaming_whitelist},
            {"gaming_uid_list", &P::gaming_uid_list},

            {"rtt_server", &P::setGamingRttServer},
            {"uid_whitelist", &P::setuidwhitelist},
            {"num_interfaces", &P::setNumInterfaces},
            {"interface_0", &P::setDescription<0>},
            {"interface_1", &P::setDescription<1>},
            {"interface_2", &P::setDescription<2>},
            {"interface_3", &P::setDescription<3>},
    };
    return keys;
}

bool Parameters::setValue(const char* key, const char* value) {
    const std::vector<ConfigKey>& keys = configKeys();
    const std::string_view name = key;
    const auto found = std::find_if(keys.begin(), keys.end(),
                                    [name](const ConfigKey& known) { return known.name == name; });
    if (found == keys.end()) {
        return false;
    }
    if (const auto* oper = std::get_if<OperId>(&found->target)) {
        m_operValues[static_cast<size_t>(*oper)].store(static_cast<uint32_t>(parseInt(value)),
                                                       std::memory_order_relaxed);
    } else if (const auto* number = std::get_if<uint32_t Parameters::*>(&found->target)) {
        this->*(*number) = static_cast<uint32_t>(parseInt(value));
    } else if (const auto* signedNumber = std::get_if<int32_t Parameters::*>(&found->target)) {
        this->*(*signedNumber) = parseInt(value);
    } else if (const auto* text = std::get_if<std::string Parameters::*>(&found->target)) {
        this->*(*text) = value;
    } else if (const auto* set = std::get_if<ConfigSetter>(&found->target)) {
        (this->*(*set))(value);
    }
    return true;
}

}  // namespace lnkd
