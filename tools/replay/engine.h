// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/time.h>

#include <string>
#include <vector>

#include "selection/interface_rtt.h"

namespace lnkd {

class SmartLinkSelection;

// The daemon's link selection, moved by hand: what its threads would do, a replay does from a log.
// One in a process.
class Engine {
  public:
    Engine();

    // Forgets all links, as a daemon that has just started.
    void clear();
    // A game or call starts: a fresh record for each link of the table.
    void start();
    // One link comes while it runs, or comes anew; or it goes.
    void add(const std::string& link);
    void remove(const std::string& link);
    // Its record, null when it takes no part.
    InterfaceRtt* find(const std::string& link);
    std::vector<std::string> links();

    // One choice, at the replayed time.
    void choose();
    void setWindowStart(const timeval& start);
    // What a game that began before the log had come to: a link chosen and the window just begun.
    void setChosen(const std::string& link);

  private:
    SmartLinkSelection* m_selection;
};

}  // namespace lnkd
