// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "doctor/need.h"

namespace lnkd {

// The links that the daemon has or will have: those that it has made a chain for, those of the
// property that names them at its start, else the interfaces whose names are those of links.
std::vector<std::string> knownLinks();

// What each link needs: interface, routing table, statistics, and, when `withProbe`, a way to the
// probe target.
Needs examineLinks(const std::vector<std::string>& links, bool withProbe);

}  // namespace lnkd
