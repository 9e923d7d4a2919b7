// SPDX-License-Identifier: Apache-2.0
#include "status/picture.h"

#include <algorithm>
#include <cstdlib>

#include "core/text_values.h"
#include "state/chain_names.h"

namespace lnkd {

namespace {

constexpr char kSecondWifiPrefix[] = "wlan1";  // what the daemon takes for the second of a pair

std::optional<uint32_t> markOf(const FilterChain& chain) {
    for (const FilterRule& rule : chain) {
        const auto mark = markSetBy(rule);
        if (mark.has_value()) {
            return mark;
        }
    }
    return std::nullopt;
}

double probabilityOf(const FilterRule& rule) {
    const std::string& text = rule.valueOf("--probability");
    return text.empty() ? 1 : std::clamp(strtod(text.c_str(), nullptr), 0.0, 1.0);
}

// A match ends the walk over the share rules, so each takes its part of what earlier ones left.
void addShares(const FilterTable& mangle, Picture* picture) {
    const FilterChain& rules = rulesOf(mangle, kShareChain);
    if (rules.empty()) {
        return;
    }
    double left = 1;
    for (const FilterRule& rule : rules) {
        const double share = left * probabilityOf(rule);
        left -= share;
        for (LinkPicture& link : picture->links) {
            if (link.name == linkOfMarkChain(rule.target())) {
                link.share = link.share.value_or(0) + share;
                link.dealtConnections += rule.packets;
            }
        }
    }
    picture->defaultShare = left;
}

// Only cellular links are ever metered, and then all of them. The share rules tell: unmetered
// links stand first, in name order, metered ones behind them. Where both would give the same
// order, nobody can tell.
void addMetered(const FilterTable& mangle, Picture* picture) {
    std::vector<std::string> order;
    for (const FilterRule& rule : rulesOf(mangle, kShareChain)) {
        order.push_back(linkOfMarkChain(rule.target()));
    }
    std::vector<std::string> ifUnmetered = order;
    std::sort(ifUnmetered.begin(), ifUnmetered.end());
    std::vector<std::string> ifMetered = ifUnmetered;
    std::stable_partition(ifMetered.begin(), ifMetered.end(),
                          [](const std::string& name) { return !isCellularName(name); });
    for (LinkPicture& link : picture->links) {
        if (!isCellularName(link.name)) {
            link.metered = false;
        } else if (ifMetered != ifUnmetered && (order == ifMetered || order == ifUnmetered)) {
            link.metered = order == ifMetered;
        }
    }
}

void addRouting(const Observation& seen, LinkPicture* link) {
    link->table = seen.tables.numberOf(link->name);
    for (const PolicyRule& rule : seen.policyRules.value) {
        link->hasPolicyRule =
                link->hasPolicyRule || (rule.priority == kPolicyPriority && rule.isMarkOnly &&
                                        rule.mark == link->mark && rule.table == link->table);
    }
    if (seen.defaultRoutes.known()) {
        link->hasDefaultRoute =
                link->table.has_value() && hasDefaultRoute(seen.defaultRoutes.value, *link->table);
    }
}

void addCounters(const Observation& seen, LinkPicture* link) {
    for (const FilterRule& rule : rulesOf(seen.filter.mangle.value, kMarkPrefix + link->name)) {
        if (rule.target() == "MARK") {
            link->steeredBytes = rule.bytes;
        }
    }
    for (const FilterRule& rule : rulesOf(seen.filter.nat.value, kNatChain)) {
        if (rule.valueOf("-o") == link->name) {
            link->newConnections += rule.packets;
        }
    }
    if (seen.connections.known() && link->mark.has_value()) {
        const auto found = seen.connections.value.find(*link->mark);
        link->connections = found == seen.connections.value.end() ? 0 : found->second.all;
    }
}

LinkPicture linkPicture(const Observation& seen, const std::string& name) {
    const FilterTable& mangle = seen.filter.mangle.value;
    LinkPicture link;
    link.name = name;
    const auto interface = seen.interfaces.value.find(name);
    if (interface != seen.interfaces.value.end()) {
        link.isThere = true;
        link.isUp = interface->second.isUp;
        link.hasCarrier = interface->second.hasCarrier;
        link.addresses = interface->second.addresses;
    }
    link.mark = markOf(rulesOf(mangle, kMarkPrefix + name));
    if (mangle.count(kMarkPrefix + name + kWrapperSuffix) != 0) {
        link.users =
                hasPrefix(name, kSecondWifiPrefix) ? Users::kSecondWifiList : Users::kWhitelist;
    }
    addRouting(seen, &link);
    addCounters(seen, &link);
    const auto statistics = seen.statistics.find(name);
    if (statistics != seen.statistics.end() && statistics->second.known() &&
        statistics->second.value.isInitialised) {
        link.bitsPerSecond = statistics->second.value.bitsPerSecond;
        link.statisticsAgeMs = statistics->second.value.newestAgeMs;
    }
    const auto probe = seen.probes.value.links.find(name);
    if (probe != seen.probes.value.links.end()) {
        link.probe = probe->second;
    }
    return link;
}

void addLists(const FilterTable& mangle, Picture* picture) {
    const std::vector<std::string> entry = uidsOf(rulesOf(mangle, kEntryChain));
    for (const std::string& uid : entry) {
        if (std::find(picture->entry.begin(), picture->entry.end(), uid) == picture->entry.end()) {
            picture->entry.push_back(uid);
        }
    }
    for (const LinkPicture& link : picture->links) {
        const std::string wrapper = kMarkPrefix + link.name + kWrapperSuffix;
        if (link.users != Users::kAll) {
            UidList& list =
                    link.users == Users::kWhitelist ? picture->whitelist : picture->secondWifi;
            list = uidsOf(rulesOf(mangle, wrapper));
        }
        const auto steered = mangle.find(kSelectionUidPrefix + link.name);
        if (steered != mangle.end()) {
            picture->gaming = uidsOf(steered->second);
            picture->isSelecting = true;
        }
    }
    // The entry filter has the gaming list first, then that of the second Wi-Fi, then the
    // whitelist. When two of them are known, the third is the rest.
    const size_t known = (picture->whitelist ? picture->whitelist->size() : 0) +
                         (picture->secondWifi ? picture->secondWifi->size() : 0);
    if (!picture->gaming && picture->whitelist && picture->secondWifi && known <= entry.size()) {
        picture->gaming.emplace(entry.begin(), entry.end() - static_cast<ptrdiff_t>(known));
    }
}

void addSelected(const FilterTable& mangle, Picture* picture) {
    const FilterChain& rules = rulesOf(mangle, kSelectedChain);
    if (rules.empty() || !hasPrefix(rules[0].target(), kSelectionUidPrefix)) {
        return;
    }
    picture->selected = rules[0].target().substr(std::string_view(kSelectionUidPrefix).size());
    for (LinkPicture& link : picture->links) {
        link.isSelected = link.name == picture->selected;
    }
}

bool leadsTo(const FilterTable& table, const char* from, const char* to) {
    const FilterChain& rules = rulesOf(table, from);
    return std::any_of(rules.begin(), rules.end(),
                       [to](const FilterRule& rule) { return rule.target() == to; });
}

void addDaemon(const Observation& seen, Picture* picture) {
    picture->daemon = seen.daemon.value;
    for (const FilterTable* const table : {&seen.filter.mangle.value, &seen.filter.nat.value}) {
        picture->leftChains += static_cast<size_t>(
                std::count_if(table->begin(), table->end(),
                              [](const auto& chain) { return isChainOfDaemon(chain.first); }));
    }
    const std::set<uint32_t> marks = marksOfChains(seen.filter.mangle.value);
    const std::vector<PolicyRule>& rules = seen.policyRules.value;
    picture->leftRules = static_cast<size_t>(std::count_if(
            rules.begin(), rules.end(),
            [&marks](const PolicyRule& rule) { return isRuleOfDaemon(rule, marks); }));
    picture->isHooked = leadsTo(seen.filter.mangle.value, "OUTPUT", kEntryChain);
    const bool areRulesKnown =
            seen.filter.mangle.known() && seen.filter.nat.known() && seen.policyRules.known();
    const bool areRulesLeft = picture->leftChains + picture->leftRules > 0;
    if (!seen.daemon.known() || (!picture->daemon && !areRulesLeft && !areRulesKnown)) {
        picture->daemonState = DaemonState::kUnknown;
    } else if (picture->daemon.has_value()) {
        picture->daemonState = DaemonState::kRunning;
    } else if (areRulesLeft) {
        picture->daemonState = DaemonState::kLeftovers;
    } else {
        picture->daemonState = seen.idleDaemon > 0 ? DaemonState::kDisabled : DaemonState::kStopped;
    }
}

}  // namespace

Picture pictureOf(const Observation& seen) {
    const FilterTable& mangle = seen.filter.mangle.value;
    Picture picture;
    addDaemon(seen, &picture);
    for (const std::string& name : linksOf(mangle)) {
        picture.links.push_back(linkPicture(seen, name));
    }
    addShares(mangle, &picture);
    addMetered(mangle, &picture);
    addLists(mangle, &picture);
    addSelected(mangle, &picture);
    return picture;
}

}  // namespace lnkd
