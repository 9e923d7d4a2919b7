// SPDX-License-Identifier: Apache-2.0
#include "core/parameters.h"
#include "core/text_values.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SlaParameters"
#include "core/log.h"

namespace lnkd {

namespace {

// The entries of a whitelist text; one that is too long is reported, by its length, and left out.
std::vector<std::string> whitelistEntries(const std::string& text, void (*report)(size_t length)) {
    std::vector<std::string> kept;
    for (std::string& entry : splitList(text)) {
        if (entry.size() > Parameters::longestWhitelistUid) {
            report(entry.size());
        } else {
            kept.push_back(std::move(entry));
        }
    }
    return kept;
}

}  // namespace

void Parameters::setuidwhitelist(const char* uids) {
    if (uids != nullptr) {
        const MutexLock lock(m_textMutex);
        uid_whitelist = uids;
    }
}

void Parameters::setDblWlanUidWhitelist(const char* uids) {
    if (uids != nullptr) {
        const MutexLock lock(m_textMutex);
        m_dblWlanUids = uids;
    }
}

void Parameters::setGamingUids(const char* uids) {
    if (uids != nullptr) {
        const MutexLock lock(m_textMutex);
        m_gamingUids = uids;
    }
}

void Parameters::populateuidwhitelist() {
    const MutexLock lock(m_textMutex);
    m_uidWhitelist = whitelistEntries(uid_whitelist, [](size_t length) {
        LNKD_LOGE("populateuidwhitelist token length error is %zu", length);
    });
    for (const std::string& uid : m_uidWhitelist) {
        LNKD_LOGI("SLA UID whitelist = %s", uid.c_str());
    }
}

void Parameters::populateDblWlanUidWhitelist() {
    const MutexLock lock(m_textMutex);
    m_dblWlanUidWhitelist = whitelistEntries(m_dblWlanUids, [](size_t length) {
        LNKD_LOGE("populateDblWlanUidWhitelist token length error is %zu", length);
    });
    for (const std::string& uid : m_dblWlanUidWhitelist) {
        LNKD_LOGI("SLA Double Wlan UID whitelist = %s", uid.c_str());
    }
}

void Parameters::populateGamingUids() {
    const MutexLock lock(m_textMutex);
    m_gamingUidList = splitList(m_gamingUids);
    for (const std::string& uid : m_gamingUidList) {
        LNKD_LOGI("SLS GAMING Demo UID = %s", uid.c_str());
    }
}

std::vector<std::string> Parameters::uidWhitelist() const {
    const MutexLock lock(m_textMutex);
    return m_uidWhitelist;
}

std::vector<std::string> Parameters::dblWlanUidWhitelist() const {
    const MutexLock lock(m_textMutex);
    return m_dblWlanUidWhitelist;
}

std::vector<std::string> Parameters::gamingUidList() const {
    const MutexLock lock(m_textMutex);
    return m_gamingUidList;
}

}  // namespace lnkd
