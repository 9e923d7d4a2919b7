// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "status/observation.h"
#include "status/picture.h"

namespace lnkd {

// Something that is not as the daemon makes it, or that keeps a link from being used.
struct Warning {
    std::string id;       // of its kind, for programs
    std::string subject;  // the chain, link or mark
    std::string text;     // what it means, a line
    // How long it must have been seen before it counts. The daemon changes its rules by flushing
    // and filling them again, so a look may fall in between.
    std::chrono::milliseconds settling{500};
};

// What is wrong with a daemon that runs. A part that could not be read gives none.
std::vector<Warning> findWarnings(const Observation& seen, const Picture& picture);

// The parts of that: of the chains, and of what the rules lead to.
void findChainWarnings(const Observation& seen, const Picture& picture,
                       std::vector<Warning>* warnings);
void findRoutingWarnings(const Observation& seen, const Picture& picture,
                         std::vector<Warning>* warnings);

}  // namespace lnkd
