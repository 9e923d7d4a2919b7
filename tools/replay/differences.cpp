// SPDX-License-Identifier: Apache-2.0
#include "replay/differences.h"

#include <cstdio>

namespace lnkd {

std::string textOf(const ProbeRecord& probe) {
    if (!probe.rated) {
        return probe.link + " unrated";
    }
    return probe.link + (probe.failed ? " failed" : " average " + std::to_string(probe.averageMs)) +
           ", level " + std::to_string(probe.level);
}

std::string textOf(const ChoiceRecord& choice) {
    std::string text;
    for (const ChoiceRecord::Candidate& candidate : choice.candidates) {
        text += candidate.link + ' ' + std::to_string(candidate.level) + ", ";
    }
    if (!choice.hasLink) {
        return text + "no link";
    }
    text += "best " + choice.best + ", " + std::to_string(choice.elapsedMs) + " of " +
            std::to_string(choice.windowMs) + " ms, ";
    if (choice.selected.empty()) {
        return text + "refused";
    }
    const std::string before = choice.previous.empty() ? "none" : choice.previous;
    return text + (choice.switched ? "switch from " + before + " to " + choice.selected
                                   : "stays on " + choice.selected);
}

std::string textOf(const ShareRecord& shares, bool isCertain) {
    std::string text;
    for (const ShareRecord::Link& link : shares.links) {
        char share[32];
        snprintf(share, sizeof(share), " %.6f, ", static_cast<double>(link.share));
        text += link.name + share;
    }
    return isCertain ? text + (shares.rebuilt ? "rules built" : "rules stay") : text;
}

}  // namespace lnkd
