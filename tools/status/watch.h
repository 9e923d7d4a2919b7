// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "status/observation.h"
#include "status/picture.h"
#include "status/warnings.h"

namespace lnkd {

// Look after look at a daemon, and the warnings that have stood long enough to be no rebuild.
class Watch {
  public:
    explicit Watch(std::string log) : m_log(std::move(log)) {}

    // Looks once.
    void look();
    // Looks until what is wrong has turned out to be no rebuild, 3 s at most.
    void settle();

    const Observation& seen() const { return m_seen; }
    const Picture& picture() const { return m_picture; }
    // Those that have stood.
    const std::vector<Warning>& warnings() const { return m_warnings; }

  private:
    using Clock = std::chrono::steady_clock;

    const std::string m_log;
    Observation m_seen;
    Picture m_picture;
    std::map<std::string, Clock::time_point> m_firstSeen;  // by id and subject
    std::vector<Warning> m_warnings;
    bool m_isUnsettled = false;  // another look may add to them
};

}  // namespace lnkd
