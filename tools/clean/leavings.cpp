// SPDX-License-Identifier: Apache-2.0
#include "clean/leavings.h"

#include "output/text.h"

namespace lnkd {

namespace {

std::vector<std::string> filterCommand(const char* table, const char* action,
                                       const std::string& chain) {
    return {kPacketFilterTool, "-w", "-t", table, action, chain};
}

void addHooks(const char* tableName, const FilterTable& table, std::vector<Removal>* removals) {
    for (const auto& [chain, rules] : table) {
        const std::string whatChain = std::string(tableName) + " hook: " + chain + " leads to ";
        for (const FilterRule& rule : rules) {
            const std::string& target = rule.target().empty() ? rule.valueOf("-g") : rule.target();
            if (!isChainOfDaemon(chain) && isChainOfDaemon(target)) {
                std::vector<std::string> words = filterCommand(tableName, "-D", chain);
                words.insert(words.end(), rule.words.begin(), rule.words.end());
                removals->push_back({std::move(words), whatChain + target});
            }
        }
    }
}

// All are emptied before the first is deleted: a chain that a rule leads to cannot be.
void addChains(const char* tableName, const FilterTable& table, std::vector<Removal>* removals) {
    std::vector<Removal> deletions;
    const std::string what = std::string(tableName) + " chain: ";
    for (const auto& [chain, rules] : table) {
        if (isChainOfDaemon(chain)) {
            removals->push_back({filterCommand(tableName, "-F", chain), ""});
            deletions.push_back({filterCommand(tableName, "-X", chain), what + chain});
        }
    }
    removals->insert(removals->end(), deletions.begin(), deletions.end());
}

}  // namespace

Leavings findLeavings(const FilterTable& mangle, const FilterTable& nat,
                      const std::vector<PolicyRule>& rules, const RoutingTables& tables,
                      std::set<uint32_t> furtherMarks) {
    Leavings leavings;
    addHooks("mangle", mangle, &leavings.removals);
    addHooks("nat", nat, &leavings.removals);
    addChains("nat", nat, &leavings.removals);
    addChains("mangle", mangle, &leavings.removals);
    furtherMarks.merge(marksOfChains(mangle));
    for (const PolicyRule& rule : rules) {
        if (rule.priority != kPolicyPriority || !rule.isMarkOnly) {
            continue;
        }
        const std::string what = "policy rule: mark " + hexadecimal(rule.mark) + " to table " +
                                 tables.nameOf(rule.table);
        if (!isRuleOfDaemon(rule, furtherMarks)) {
            leavings.foreignRules.push_back(what);
            continue;
        }
        // With its table: another rule may have the same mark.
        leavings.removals.push_back(
                {{kRoutingTool, "-4", "rule", "del", "fwmark", hexadecimal(rule.mark), "table",
                  std::to_string(rule.table), "prio", std::to_string(rule.priority)},
                 what});
    }
    return leavings;
}

}  // namespace lnkd
