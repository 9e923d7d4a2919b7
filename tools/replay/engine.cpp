// SPDX-License-Identifier: Apache-2.0
#include "replay/engine.h"

#include "core/parameters.h"
#include "selection/smart_link_selection.h"

namespace lnkd {

// What the selection keeps to itself. Nothing else runs in this process, so no lock is needed.
class SmartLinkSelectionPeer {
  public:
    static InterfaceRtt* find(SmartLinkSelection& selection,
                              const std::string& link) NO_THREAD_SAFETY_ANALYSIS {
        const auto record = selection.m_slsInterfaceMap.find(link);
        return record == selection.m_slsInterfaceMap.end() ? nullptr : record->second.get();
    }
    static std::vector<std::string> links(SmartLinkSelection& selection) NO_THREAD_SAFETY_ANALYSIS {
        std::vector<std::string> names;
        for (const auto& [name, record] : selection.m_slsInterfaceMap) {
            names.push_back(name);
        }
        return names;
    }
    static void setWindowStart(SmartLinkSelection& selection,
                               const timeval& start) NO_THREAD_SAFETY_ANALYSIS {
        selection.m_hystWindowStart = start;
    }
    static void setChosen(SmartLinkSelection& selection,
                          InterfaceRtt* record) NO_THREAD_SAFETY_ANALYSIS {
        selection.m_currentInterface = record;
        selection.m_switchCount = 0;
    }
};

Engine::Engine() {
    SmartLinkSelection::Init();
    m_selection = SmartLinkSelection::instance();
    // What runs, the log tells; the choice is only made when it does.
    Parameters::instance()->setGamingRunning(true);
}

void Engine::clear() {
    m_selection->destoryPingThreads();
    Parameters* const parameters = Parameters::instance();
    const InterfaceSnapshot table = parameters->interfaces();
    for (const auto& [name, record] : *table) {
        parameters->UpdateInterface(name.c_str(), false);
    }
}

void Engine::start() {
    m_selection->initPingThreads();
}

void Engine::add(const std::string& link) {
    m_selection->updateSlsInterfacemap(link.c_str(), true);
}

void Engine::remove(const std::string& link) {
    m_selection->updateSlsInterfacemap(link.c_str(), false);
}

InterfaceRtt* Engine::find(const std::string& link) {
    return SmartLinkSelectionPeer::find(*m_selection, link);
}

std::vector<std::string> Engine::links() {
    return SmartLinkSelectionPeer::links(*m_selection);
}

void Engine::choose() {
    m_selection->slsChooseInterface();
}

void Engine::setWindowStart(const timeval& start) {
    SmartLinkSelectionPeer::setWindowStart(*m_selection, start);
}

void Engine::setChosen(const std::string& link) {
    SmartLinkSelectionPeer::setChosen(*m_selection, find(link));
}

}  // namespace lnkd
