// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <iterator>

#include "output/text.h"
#include "status/warnings.h"

namespace lnkd {

namespace {

constexpr char kOtherWay[] = ": what is dealt to it takes the default route";

void checkPolicyRules(const Observation& seen, const Picture& picture,
                      std::vector<Warning>* warnings) {
    const std::set<uint32_t> marks = marksOfChains(seen.filter.mangle.value);
    std::vector<PolicyRule> strays;
    std::copy_if(seen.policyRules.value.begin(), seen.policyRules.value.end(),
                 std::back_inserter(strays),
                 [&marks](const PolicyRule& rule) { return isRuleOfDaemon(rule, marks); });
    for (const LinkPicture& link : picture.links) {
        if (!link.mark.has_value() || !link.table.has_value()) {
            continue;  // said where the chain is looked at, and with the route
        }
        const auto first =
                std::remove_if(strays.begin(), strays.end(), [&link](const PolicyRule& rule) {
                    return rule.mark == *link.mark && rule.table == *link.table;
                });
        const auto count = strays.end() - first;
        strays.erase(first, strays.end());
        const std::string rule = "policy rule from mark " + hexadecimal(*link.mark) + " to table " +
                                 seen.tables.nameOf(*link.table);
        if (count == 0) {
            warnings->push_back({"policy-rule-missing", link.name, "no " + rule + kOtherWay});
        } else if (count > 1) {
            warnings->push_back({"policy-rule-twice", link.name,
                                 "the " + rule + " is there " + std::to_string(count) +
                                         " times: one will stay and mislead when " + link.name +
                                         " goes"});
        }
    }
    for (const PolicyRule& rule : strays) {
        const std::string table = seen.tables.nameOf(rule.table);
        warnings->push_back(
                {"policy-rule-stale", table,
                 "a policy rule sends mark " + hexadecimal(rule.mark) + " to table " + table +
                         ", which is of no link with that mark: connections may leave by it"});
    }
}

// Why a link leads nowhere, as far as is known; empty when it does lead somewhere.
std::string noRouteBecause(const Observation& seen, const LinkPicture& link) {
    if (seen.interfaces.known() && !link.isThere) {
        return "there is no interface " + link.name;
    }
    if (!link.table.has_value()) {
        return "there is no routing table named " + link.name;
    }
    if (!link.hasDefaultRoute.value_or(true)) {
        return seen.interfaces.known() && !link.isUp
                       ? link.name + " is down and has no default route"
                       : "the routing table of " + link.name + " has no default route";
    }
    return "";
}

}  // namespace

void findRoutingWarnings(const Observation& seen, const Picture& picture,
                         std::vector<Warning>* warnings) {
    if (seen.policyRules.known() && seen.filter.mangle.known()) {
        checkPolicyRules(seen, picture, warnings);
    }
    for (const LinkPicture& link : picture.links) {
        const std::string reason = noRouteBecause(seen, link);
        if (!reason.empty()) {
            warnings->push_back({"link-without-route", link.name, reason + kOtherWay});
        }
    }
}

}  // namespace lnkd
