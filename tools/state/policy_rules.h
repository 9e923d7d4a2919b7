// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include "state/reading.h"

namespace lnkd {

// Priority of the policy rules that the daemon makes.
constexpr uint32_t kPolicyPriority = 30000;

// A rule of IPv4 routing policy.
struct PolicyRule {
    uint32_t priority = 0;
    uint32_t mark = 0;
    uint32_t mask = 0;  // of the mark; 0: the rule does not look at it
    uint32_t table = 0;
    // It leads to the table and looks at nothing but the mark, all bits of it, as the daemon's do.
    bool isMarkOnly = false;
};

// Whether the daemon may have made it: of its priority, and with one of the marks that it gives to
// links by their names, or of `furtherMarks`.
bool isRuleOfDaemon(const PolicyRule& rule, const std::set<uint32_t>& furtherMarks = {});

// All of them, in the order in which the kernel asks them.
Reading<std::vector<PolicyRule>> readPolicyRules();

}  // namespace lnkd
