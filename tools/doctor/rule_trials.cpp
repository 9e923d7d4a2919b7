// SPDX-License-Identifier: Apache-2.0
#include "doctor/rule_trials.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "state/packet_filter.h"
#include "state/policy_rules.h"
#include "state/program.h"

namespace lnkd {

namespace {

using Words = std::vector<std::string>;

// Not one of the daemon's, which are removed when they are found without it; and a mark that no
// packet has.
constexpr char kTrialChain[] = "lnkdctl_trial";
constexpr uint32_t kTrialMark = 0x7E57;

constexpr char kNoTool[] = "its tool does not work";
constexpr char kElsewhere[] = "its tool does not work in a network namespace of ours";

struct Trial {
    const char* thing;
    Words command;
    const char* without;
    const char* remedy;
};

Words filterCommand(const Words& words) {
    Words command = {kPacketFilterTool, "-w", "-t"};
    command.insert(command.end(), words.begin(), words.end());
    return command;
}

const std::vector<Trial>& filterTrials() {
    static const std::vector<Trial> trials = {
            {"mangle", filterCommand({"mangle", "-N", "zelk_DVX"}), "nothing is steered",
             "a kernel with CONFIG_IP_NF_MANGLE, or CONFIG_NFT_COMPAT, as the tool wants it"},
            {"nat", filterCommand({"nat", "-N", "zelk_nat_POSTROUTING_DVX"}),
             "connections leave by a link with the address of another",
             "a kernel with CONFIG_IP_NF_NAT, or CONFIG_NFT_NAT, as the tool wants it"},
            {"owner",
             filterCommand({"mangle", "-A", "OUTPUT", "-m", "owner", "--uid-owner", "10123", "-j",
                            "ACCEPT"}),
             "no application's connections can be told from others",
             "a kernel with CONFIG_NETFILTER_XT_MATCH_OWNER"},
            {"multiport",
             filterCommand({"mangle", "-A", "OUTPUT", "--match", "multiport", "-p", "tcp",
                            "--dports", "80,443,8080", "-j", "ACCEPT"}),
             "no connection is spread over the links",
             "a kernel with CONFIG_NETFILTER_XT_MATCH_MULTIPORT"},
            {"state",
             filterCommand(
                     {"mangle", "-A", "OUTPUT", "-m", "state", "--state", "NEW", "-j", "ACCEPT"}),
             "no connection is spread, and none keeps its link",
             "a kernel with CONFIG_NETFILTER_XT_MATCH_STATE"},
            {"statistic",
             filterCommand({"mangle", "-A", "OUTPUT", "-m", "statistic", "--mode", "random",
                            "--probability", "0.500000", "-j", "ACCEPT"}),
             "no connection is spread over the links",
             "a kernel with CONFIG_NETFILTER_XT_MATCH_STATISTIC"},
            {"MARK", filterCommand({"mangle", "-A", "OUTPUT", "-j", "MARK", "--set-mark", "0x5A"}),
             "no connection can be sent over a link",
             "a kernel with CONFIG_NETFILTER_XT_TARGET_MARK"},
            {"CONNMARK", filterCommand({"mangle", "-A", "OUTPUT", "-j", "CONNMARK", "--save-mark"}),
             "a connection changes its link between two packets, and breaks",
             "a kernel with CONFIG_NETFILTER_XT_TARGET_CONNMARK"},
            {"MASQUERADE",
             filterCommand({"nat", "-A", "POSTROUTING", "-o", "wlan0", "-j", "MASQUERADE"}),
             "connections leave by a link with the address of another",
             "a kernel with CONFIG_NETFILTER_XT_TARGET_MASQUERADE"},
            {"UDP ports",
             filterCommand(
                     {"mangle", "-A", "OUTPUT", "-p", "udp", "!", "--dport", "53", "-j", "ACCEPT"}),
             "a game's UDP is not steered", "a packet-filter tool with the match udp"},
    };
    return trials;
}

Need needOf(const Trial& trial) {
    return {"packet filter", trial.thing, false, trial.without, trial.remedy};
}

// Why the packet filter's tool must not be used for trials; empty when it may. A tool that has its
// work done by somebody else could change the machine's rules: a chain that it makes for us must
// not appear there.
std::string filterObstacle(const PrivateNetwork& network) {
    if (!network.problem().empty()) {
        return network.problem();
    }
    const Words list = filterCommand({"mangle", "-S", kTrialChain});
    if (runProgram(list).succeeded()) {
        return std::string("a chain ") + kTrialChain + " is there already";
    }
    ProgramResult made;
    if (!network.run([&made] {
            made = runProgram(filterCommand({"mangle", "-N", kTrialChain}));
        })) {
        return PrivateNetwork::notEntered;
    }
    if (made.succeeded() && runProgram(list).succeeded()) {
        runProgram(filterCommand({"mangle", "-X", kTrialChain}));
        return kElsewhere;
    }
    return "";
}

Need tryRule(const Trial& trial) {
    const Need need = needOf(trial);
    const ProgramResult result = runProgram(trial.command);
    return result.succeeded() ? need.met(need.thing)
                              : need.missing(need.thing + ": " + result.complaint());
}

Reading<bool> machineHasTrialRule() {
    const Reading<std::vector<PolicyRule>> rules = readPolicyRules();
    Reading<bool> found;
    found.problem = rules.problem;
    found.value = std::any_of(rules.value.begin(), rules.value.end(), [](const PolicyRule& rule) {
        return rule.mark == kTrialMark && rule.priority == kPolicyPriority;
    });
    return found;
}

Need tryPolicyRule(const PrivateNetwork& network, bool toolWorks) {
    const Need need{"routing policy", "rule by mark", false,
                    "marked connections take the default route all the same",
                    "a kernel with CONFIG_IP_MULTIPLE_TABLES"};
    if (!network.problem().empty()) {
        return need.unknown(network.problem());
    }
    if (!toolWorks) {
        return need.unknown(kNoTool);
    }
    const Reading<bool> before = machineHasTrialRule();
    if (!before.known() || before.value) {
        return need.unknown(before.known() ? "a rule like that of the trial is there already"
                                           : before.problem);
    }
    const auto command = [](const char* action) -> Words {
        return {kRoutingTool, "-4",
                "rule",       action,
                "fwmark",     std::to_string(kTrialMark),
                "table",      "main",
                "prio",       std::to_string(kPolicyPriority)};
    };
    ProgramResult result;
    if (!network.run([&result, &command] { result = runProgram(command("add")); })) {
        return need.unknown(PrivateNetwork::notEntered);
    }
    const Reading<bool> after = machineHasTrialRule();  // see filterObstacle()
    if (!after.known()) {
        return need.unknown(after.problem);
    }
    if (after.value) {
        runProgram(command("del"));
        return need.unknown(kElsewhere);
    }
    return result.succeeded() ? need.met(need.thing)
                              : need.missing(need.thing + ": " + result.complaint());
}

}  // namespace

Needs tryRules(const PrivateNetwork& network, bool filterToolWorks, bool routingToolWorks) {
    std::string obstacle = filterToolWorks ? filterObstacle(network) : kNoTool;
    Needs needs;
    const auto tryAll = [&needs] {
        for (const Trial& trial : filterTrials()) {
            needs.push_back(tryRule(trial));
        }
    };
    if (obstacle.empty() && !network.run(tryAll)) {
        obstacle = PrivateNetwork::notEntered;
    }
    if (!obstacle.empty()) {
        for (const Trial& trial : filterTrials()) {
            needs.push_back(needOf(trial).unknown(obstacle));
        }
    }
    needs.push_back(tryPolicyRule(network, routingToolWorks));
    return needs;
}

}  // namespace lnkd
