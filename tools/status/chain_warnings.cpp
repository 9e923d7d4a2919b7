// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <iterator>

#include "core/text_values.h"
#include "output/text.h"
#include "state/chain_names.h"
#include "status/warnings.h"

namespace lnkd {

namespace {

// Longer than a pass of the main loop, which makes the share rules anew after a link came or went.
// With a game or a call a pass may wait for a slow probe of each link.
constexpr std::chrono::milliseconds kPass(2500);
constexpr std::chrono::milliseconds kSlowPass(45000);

// A rule that must stand in a chain: where it leads, and words that it has; none: it has no match.
struct Wanted {
    std::string target;
    std::vector<std::string> words;

    bool fits(const FilterRule& rule) const {
        const auto has = [&rule](const std::string& word) {
            return std::find(rule.words.begin(), rule.words.end(), word) != rule.words.end();
        };
        return rule.target() == target &&
               (words.empty() ? rule.words.size() == 2
                              : std::all_of(words.begin(), words.end(), has));
    }
    std::string text() const {
        std::string text = "\"-j " + target;
        for (const std::string& word : words) {
            text += ' ' + word;
        }
        return text + '"';
    }
};

// What is wrong with the rules of a chain: the first that is another than it should be.
std::string differenceOf(const FilterChain& rules, const std::vector<Wanted>& wanted) {
    for (size_t i = 0; i < std::max(rules.size(), wanted.size()); ++i) {
        const bool isNextHere =
                i + 1 < wanted.size() && i < rules.size() && wanted[i + 1].fits(rules[i]);
        const std::string rule = "rule " + std::to_string(i + 1) + ", ";
        if (i >= wanted.size()) {
            return rule + '"' + rules[i].text() + "\", does not belong there";
        }
        if (i < rules.size() && wanted[i].fits(rules[i])) {
            continue;
        }
        if (i >= rules.size() || isNextHere) {
            return rule + wanted[i].text() + ", is missing";
        }
        return rule + '"' + rules[i].text() + "\", should be " + wanted[i].text();
    }
    return "";
}

class ChainCheck {
  public:
    ChainCheck(const Observation& seen, const Picture& picture, std::vector<Warning>* warnings)
        : m_mangle(seen.filter.mangle.value),
          m_nat(seen.filter.nat.value),
          m_picture(picture),
          m_pass(picture.isSelecting && seen.probes.value.choices < 2 ? kSlowPass : kPass),
          m_warnings(warnings) {}

    void run() {
        checkHook(m_mangle, "OUTPUT", kEntryChain,
                  "nothing is steered, all traffic takes the default route",
                  "what the first leaves to the default route is dealt once more");
        checkHook(m_nat, "POSTROUTING", kNatChain,
                  "connections that are steered keep another link's address and get no answer",
                  "harmless, but not lnkd's doing");
        checkRules(m_mangle, kMainChain,
                   {{kSelectedChain, {}},
                    {"CONNMARK", {"--restore-mark", "--state"}},
                    {kShareChain, {}}},
                   "connections are steered wrongly, or change their link while they last");
        checkPresence(m_mangle, kEntryChain, "nothing is steered");
        checkPresence(m_mangle, kSelectedChain, "games and calls are not steered");
        checkPresence(m_mangle, kShareChain, "web connections are not spread");
        for (const LinkPicture& link : m_picture.links) {
            checkLink(link);
        }
        checkNat();
        checkLists();
        checkSelection();
        checkShares();
    }

  private:
    void warn(const char* id, const std::string& subject, const std::string& text) {
        m_warnings->push_back({id, subject, text});
    }

    void checkHook(const FilterTable& table, const std::string& from, const std::string& to,
                   const std::string& ifMissing, const std::string& ifTwice) {
        const FilterChain& rules = rulesOf(table, from);
        const auto count = std::count_if(rules.begin(), rules.end(), [&to](const FilterRule& rule) {
            return Wanted{to, {}}.fits(rule);
        });
        if (count == 0) {
            warn("hook-missing", from, from + " does not lead to " + to + ": " + ifMissing);
        } else if (count > 1) {
            warn("hook-twice", from,
                 from + " leads to " + to + ' ' + std::to_string(count) + " times: " + ifTwice);
        }
    }

    bool checkPresence(const FilterTable& table, const std::string& chain,
                       const std::string& meaning) {
        if (table.count(chain) == 0) {
            warn("chain-missing", chain, "chain " + chain + " is missing: " + meaning);
            return false;
        }
        return true;
    }

    void checkRules(const FilterTable& table, const std::string& chain,
                    const std::vector<Wanted>& wanted, const std::string& meaning) {
        if (!checkPresence(table, chain, meaning)) {
            return;
        }
        const std::string difference = differenceOf(rulesOf(table, chain), wanted);
        if (!difference.empty()) {
            warn("chain-differs", chain, chain + ": " + difference + ": " + meaning);
        }
    }

    // A chain of nothing but UIDs that lead to the same chain.
    void checkUidChain(const std::string& chain, const std::string& target) {
        for (const FilterRule& rule : rulesOf(m_mangle, chain)) {
            if (rule.target() != target || !parseUid(rule.valueOf("--uid-owner")) ||
                rule.words.size() != 6) {
                std::string text = chain;
                text += ": \"" + rule.text() + "\" is not lnkd's rule: others than the ";
                text += "applications of its list are led to " + target;
                warn("chain-differs", chain, text);
                return;
            }
        }
    }

    void checkLink(const LinkPicture& link) {
        const std::string marking = kMarkPrefix + link.name;
        checkRules(m_mangle, marking,
                   {{"MARK", {"--set-xmark"}}, {"CONNMARK", {"--save-mark"}}, {"ACCEPT", {}}},
                   "what is dealt to " + link.name + " may take the default route");
        checkUidChain(marking + kWrapperSuffix, marking);
        const std::string selecting = kSelectionPrefix + link.name;
        const std::string selectingUids = kSelectionUidPrefix + link.name;
        if (m_mangle.count(selectingUids) != 0) {
            const std::string meaning = "a game on " + link.name + " is steered only in part";
            checkRules(m_mangle, selecting,
                       {{marking, {"udp", "--dport", "53"}}, {marking, {"tcp"}}, {"ACCEPT", {}}},
                       meaning);
            checkUidChain(selectingUids, selecting);
        }
    }

    void checkNat() {
        if (!checkPresence(m_nat, kNatChain,
                           "connections that are steered keep another link's address and get no "
                           "answer")) {
            return;
        }
        std::vector<std::string> strays;
        std::vector<std::string> found;
        for (const FilterRule& rule : rulesOf(m_nat, kNatChain)) {
            const std::string& link = rule.valueOf("-o");
            const bool isOurs =
                    rule.target() == "MASQUERADE" && rule.words.size() == 4 &&
                    std::any_of(m_picture.links.begin(), m_picture.links.end(),
                                [&link](const LinkPicture& known) { return known.name == link; });
            (isOurs ? found : strays).push_back(isOurs ? link : '"' + rule.text() + '"');
        }
        for (const LinkPicture& link : m_picture.links) {
            const auto count = std::count(found.begin(), found.end(), link.name);
            if (count == 0) {
                warn("chain-differs", kNatChain,
                     std::string(kNatChain) + ": no masquerading for " + link.name +
                             ": what is dealt to it keeps another link's address and gets no "
                             "answer");
            } else if (count > 1) {
                warn("chain-differs", kNatChain,
                     std::string(kNatChain) + ": masquerading for " + link.name +
                             " twice: harmless, but not lnkd's doing");
            }
        }
        for (const std::string& stray : strays) {
            warn("chain-differs", kNatChain,
                 std::string(kNatChain) + ": " + stray + " is of no link of lnkd");
        }
    }

    void checkLists() {
        checkUidChain(kEntryChain, kMainChain);
        // The lists as the links' chains have them must be the end of the entry filter.
        std::vector<std::string> rest = uidsOf(rulesOf(m_mangle, kEntryChain));
        const auto takeEnd = [&rest](const UidList& list) {
            if (!list.has_value()) {
                return true;
            }
            if (list->size() > rest.size() ||
                !std::equal(list->rbegin(), list->rend(), rest.rbegin())) {
                return false;
            }
            rest.resize(rest.size() - list->size());
            return true;
        };
        const bool areAllKnown =
                m_picture.whitelist.has_value() && m_picture.secondWifi.has_value();
        if (!takeEnd(m_picture.whitelist) ||
            (m_picture.whitelist && !takeEnd(m_picture.secondWifi)) ||
            (m_picture.isSelecting && areAllKnown && rest != *m_picture.gaming)) {
            warn("chain-differs", kEntryChain,
                 std::string(kEntryChain) +
                         " lets in other applications than the chains of the "
                         "links: some that are on a list are not steered, or only in part");
        }
        checkWrappersAgree();
    }

    // Links with the same users have the same list.
    void checkWrappersAgree() {
        for (const LinkPicture& link : m_picture.links) {
            const UidList& list =
                    link.users == Users::kWhitelist ? m_picture.whitelist : m_picture.secondWifi;
            const std::string chain = kMarkPrefix + link.name + kWrapperSuffix;
            if (link.users != Users::kAll && uidsOf(rulesOf(m_mangle, chain)) != *list) {
                warn("chain-differs", chain,
                     chain +
                             " has another list than the chains of other links: some applications "
                             "may not use " +
                             link.name);
            }
        }
    }

    void checkSelection() {
        const FilterChain& rules = rulesOf(m_mangle, kSelectedChain);
        if (rules.empty()) {
            return;
        }
        const std::string target = kSelectionUidPrefix + m_picture.selected;
        if (rules.size() > 1 || m_picture.selected.empty() || !Wanted{target, {}}.fits(rules[0])) {
            warn("chain-differs", kSelectedChain,
                 std::string(kSelectedChain) + " has \"" + rules.back().text() +
                         "\": games and calls may be steered to a link that lnkd did not choose");
        }
    }

    void warnOfShares(const std::string& text) {
        m_warnings->push_back(
                {"shares-incomplete", kShareChain, std::string(kShareChain) + ' ' + text, m_pass});
    }

    void checkShares() {
        const FilterChain& rules = rulesOf(m_mangle, kShareChain);
        if (rules.empty() && !m_picture.links.empty() && m_mangle.count(kShareChain) != 0) {
            warnOfShares("has no rules: all new web connections take the default route");
            return;
        }
        for (const LinkPicture& link : m_picture.links) {
            const std::string target =
                    kMarkPrefix + link.name + (link.users == Users::kAll ? "" : kWrapperSuffix);
            const auto count =
                    std::count_if(rules.begin(), rules.end(), [&target](const FilterRule& rule) {
                        return Wanted{target, {"--dports", "--state", "--probability"}}.fits(rule);
                    });
            if (!rules.empty() && count != 1) {
                warnOfShares(count == 0 ? "has no rule for " + link.name +
                                                  ": it gets no new web connections"
                                        : "has " + std::to_string(count) + " rules for " +
                                                  link.name + ": it gets too many connections");
            }
        }
        if (rules.size() > m_picture.links.size()) {
            warnOfShares("has more rules than there are links: connections are dealt wrongly");
        }
    }

    const FilterTable& m_mangle;
    const FilterTable& m_nat;
    const Picture& m_picture;
    const std::chrono::milliseconds m_pass;
    std::vector<Warning>* m_warnings;
};

}  // namespace

void findChainWarnings(const Observation& seen, const Picture& picture,
                       std::vector<Warning>* warnings) {
    ChainCheck(seen, picture, warnings).run();
}

}  // namespace lnkd
