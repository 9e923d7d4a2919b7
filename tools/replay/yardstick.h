// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "selection/interface_rtt.h"

namespace lnkd {

// How good a link is, whatever the tunables: the daemon's own rating of the median of its last
// three results. Stories of different tunables are measured by it.
class Yardstick {
  public:
    // Takes a result, -1 for a miss, and returns the level; 1 when most of the three were misses.
    int32_t take(const std::string& link, int32_t rttMs);
    void clear() { m_links.clear(); }

  private:
    struct Link {
        std::unique_ptr<InterfaceRtt> rated;
        std::vector<int32_t> last;  // oldest first
    };

    std::map<std::string, Link> m_links;
};

}  // namespace lnkd
