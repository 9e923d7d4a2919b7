// SPDX-License-Identifier: Apache-2.0
#include "state/policy_rules.h"

#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <iterator>

#include "state/route_netlink.h"

namespace lnkd {

namespace {

// What a rule may look at beside a mark, or do beside leading to a table; the kernel leaves out
// those that it does not.
constexpr uint16_t kFurtherAttributes[] = {
        FRA_IIFNAME,     FRA_OIFNAME, FRA_UID_RANGE, FRA_IP_PROTO,         FRA_SPORT_RANGE,
        FRA_DPORT_RANGE, FRA_TUN_ID,  FRA_L3MDEV,    FRA_SUPPRESS_IFGROUP, FRA_FLOW,
};

PolicyRule ruleOf(const RouteMessage& message, const fib_rule_hdr& header) {
    constexpr size_t kHeader = sizeof(header);
    constexpr uint32_t kAllBits = UINT32_MAX;
    PolicyRule rule;
    rule.priority = message.number(kHeader, FRA_PRIORITY, 0);
    rule.mark = message.number(kHeader, FRA_FWMARK, 0);
    rule.mask = message.number(kHeader, FRA_FWMASK, 0);
    rule.table = message.number(kHeader, FRA_TABLE, header.table);
    const bool looksElsewhere =
            header.src_len != 0 || header.dst_len != 0 || header.tos != 0 ||
            (header.flags & FIB_RULE_INVERT) != 0 ||
            message.number(kHeader, FRA_SUPPRESS_PREFIXLEN, kAllBits) != kAllBits ||
            std::any_of(std::begin(kFurtherAttributes), std::end(kFurtherAttributes),
                        [&message](uint16_t type) {
                            return !message.attribute(kHeader, type).empty();
                        });
    rule.isMarkOnly = header.action == FR_ACT_TO_TBL && rule.mask == kAllBits && !looksElsewhere;
    return rule;
}

}  // namespace

bool isRuleOfDaemon(const PolicyRule& rule, const std::set<uint32_t>& furtherMarks) {
    constexpr uint32_t kFirstMark = 0x5A;
    constexpr uint32_t kLastMark = 0x5C;
    const bool isMarkOfDaemon = (rule.mark >= kFirstMark && rule.mark <= kLastMark) ||
                                furtherMarks.count(rule.mark) != 0;
    return rule.priority == kPolicyPriority && rule.isMarkOnly && isMarkOfDaemon;
}

Reading<std::vector<PolicyRule>> readPolicyRules() {
    Reading<std::vector<PolicyRule>> rules;
    rules.problem = dumpRouting(
            RTM_GETRULE, AF_INET, [&rules] { rules.value.clear(); },
            [&rules](const RouteMessage& message) {
                fib_rule_hdr header;
                if (message.header(&header)) {
                    rules.value.push_back(ruleOf(message, header));
                }
            });
    return rules;
}

}  // namespace lnkd
