// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>

#include "selection/smart_link_selection.h"

namespace lnkd {

// What the choice keeps to itself.
class SmartLinkSelectionPeer {
  public:
    explicit SmartLinkSelectionPeer(SmartLinkSelection* engine) : m_engine(engine) {}

    InterfaceRtt& record(const std::string& name) NO_THREAD_SAFETY_ANALYSIS {
        return *m_engine->m_slsInterfaceMap.at(name);
    }
    // Rates the links and makes one choice; the name chosen, "" for none.
    std::string choose(const std::map<std::string, int32_t>& levels) NO_THREAD_SAFETY_ANALYSIS {
        for (const auto& [name, level] : levels)
            record(name).m_networkLevel = level;
        m_engine->calcInterface();
        return m_engine->m_currentInterface ? m_engine->m_currentInterface->m_ifaceName : "";
    }
    void setWindow(int64_t secondsAgo, int32_t switches) NO_THREAD_SAFETY_ANALYSIS {
        gettimeofday(&m_engine->m_hystWindowStart, nullptr);
        m_engine->m_hystWindowStart.tv_sec -= secondsAgo;
        m_engine->m_switchCount = switches;
    }
    size_t size() NO_THREAD_SAFETY_ANALYSIS { return m_engine->m_slsInterfaceMap.size(); }

  private:
    SmartLinkSelection* m_engine;
};

}  // namespace lnkd
