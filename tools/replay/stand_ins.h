// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <map>
#include <string>

namespace lnkd {

// What the replayed daemon finds where it would look at the machine or change it: it has no thread,
// no rule, no socket and no statistics of its own.
struct StandIns {
    struct Measured {
        uint32_t rate = 0;   // kbit/s
        float oldShare = 0;  // before the pass
    };

    std::string configurationFile;             // empty: there is none
    std::map<std::string, Measured> measured;  // what a link does in the next pass
    timeval switchEnd = {};                    // when the next switch will have been done
};

StandIns& standIns();

}  // namespace lnkd
