// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "state/reading.h"

namespace lnkd {

// The tools that the daemon changes packet filter and policy rules with.
constexpr char kPacketFilterTool[] = "/system/bin/iptables-wrapper-1.0";
constexpr char kRoutingTool[] = "/system/bin/ip-wrapper-1.0";

// A rule as the packet filter's tool lists it, from behind the chain's name on.
struct FilterRule {
    std::vector<std::string> words;  // without the counters
    uint64_t packets = 0;
    uint64_t bytes = 0;

    // The word that follows an option, "-j" or "--probability"; empty without it.
    const std::string& valueOf(std::string_view option) const;
    const std::string& target() const { return valueOf("-j"); }
    // The words, a blank between two.
    std::string text() const;
};

using FilterChain = std::vector<FilterRule>;
// The chains of a table by name, built-in ones included.
using FilterTable = std::map<std::string, FilterChain>;

struct PacketFilter {
    Reading<FilterTable> mangle;
    Reading<FilterTable> nat;
};

// Lists both tables at the same moment, with the counters of each rule. Needs root.
PacketFilter readPacketFilter();

// Reads what the tool prints for "-S -v". A line that is none of its own is passed over; a rule of
// a chain that was not announced is a problem.
Reading<FilterTable> parseFilterTable(std::string_view listing);

// Whether a chain is one of the daemon's, by its name.
bool isChainOfDaemon(std::string_view chain);

// The mark that a rule sets on packets, if it does.
std::optional<uint32_t> markSetBy(const FilterRule& rule);

// The marks that the daemon's chains set: a configuration can give a link any.
std::set<uint32_t> marksOfChains(const FilterTable& mangle);

}  // namespace lnkd
