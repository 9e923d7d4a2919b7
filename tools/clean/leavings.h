// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "state/packet_filter.h"
#include "state/policy_rules.h"
#include "state/routes.h"

namespace lnkd {

// A command that takes one thing of the daemon's out of the kernel.
struct Removal {
    std::vector<std::string> words;
    std::string what;  // as people call the thing; empty for a step on the way
};

// What a daemon that was killed left in the kernel.
struct Leavings {
    // In the order in which they can be run: what refers to a chain goes before it.
    std::vector<Removal> removals;
    // Policy rules of the daemon's priority with a mark that is none of its own, for people.
    std::vector<std::string> foreignRules;
};

// Finds them: every rule elsewhere that leads to a chain whose name begins with "zelk_", those
// chains, and the policy rules of the daemon's priority that look at nothing but one of its marks.
// Its marks are those that it gives to links by their names, those that its chains still set, and
// `furtherMarks`.
Leavings findLeavings(const FilterTable& mangle, const FilterTable& nat,
                      const std::vector<PolicyRule>& rules, const RoutingTables& tables,
                      std::set<uint32_t> furtherMarks);

}  // namespace lnkd
