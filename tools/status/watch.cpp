// SPDX-License-Identifier: Apache-2.0
#include "status/watch.h"

#include <thread>
#include <utility>

namespace lnkd {

namespace {

// For longer nobody waits who looks once.
constexpr std::chrono::milliseconds kPatience(3000);

}  // namespace

void Watch::settle() {
    constexpr std::chrono::milliseconds kLookAgain(250);
    const Clock::time_point end = Clock::now() + kPatience;
    look();
    while (m_isUnsettled && Clock::now() < end) {
        std::this_thread::sleep_for(kLookAgain);
        look();
    }
}

void Watch::look() {
    m_seen = observe(m_log);
    m_picture = pictureOf(m_seen);
    std::map<std::string, Clock::time_point> firstSeen;
    m_warnings.clear();
    m_isUnsettled = false;
    for (Warning& warning : findWarnings(m_seen, m_picture)) {
        const std::string key = warning.id + ' ' + warning.subject;
        const auto known = m_firstSeen.find(key);
        const Clock::time_point since = known == m_firstSeen.end() ? m_seen.at : known->second;
        firstSeen[key] = since;
        if (m_seen.at - since >= warning.settling) {
            m_warnings.push_back(std::move(warning));
        } else {
            m_isUnsettled = m_isUnsettled || warning.settling <= kPatience;
        }
    }
    m_firstSeen = std::move(firstSeen);
}

}  // namespace lnkd
