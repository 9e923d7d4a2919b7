// SPDX-License-Identifier: Apache-2.0
#include "state/chain_names.h"

#include <algorithm>
#include <set>

#include "core/text_values.h"

namespace lnkd {

std::string linkOfMarkChain(const std::string& chain) {
    if (!hasPrefix(chain, kMarkPrefix)) {
        return "";
    }
    const std::string rest = chain.substr(std::string_view(kMarkPrefix).size());
    const size_t length =
            rest.size() - std::min(rest.size(), std::string_view(kWrapperSuffix).size());
    return rest.substr(length) == kWrapperSuffix ? rest.substr(0, length) : rest;
}

std::vector<std::string> linksOf(const FilterTable& mangle) {
    std::set<std::string> links;
    for (const auto& [chain, rules] : mangle) {
        const std::string link = linkOfMarkChain(chain);
        if (isInterfaceName(link)) {
            links.insert(link);
        }
    }
    return {links.begin(), links.end()};
}

const FilterChain& rulesOf(const FilterTable& table, const std::string& chain) {
    static const FilterChain kNone;
    const auto found = table.find(chain);
    return found == table.end() ? kNone : found->second;
}

std::vector<std::string> uidsOf(const FilterChain& rules) {
    std::vector<std::string> uids;
    for (const FilterRule& rule : rules) {
        const std::string& uid = rule.valueOf("--uid-owner");
        if (parseUid(uid).has_value()) {
            uids.push_back(uid);
        }
    }
    return uids;
}

}  // namespace lnkd
