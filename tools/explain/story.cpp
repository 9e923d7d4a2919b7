// SPDX-License-Identifier: Apache-2.0
#include "explain/story.h"

#include <utility>

namespace lnkd {

LinkCurves* curvesOf(Story* story, const std::string& link) {
    constexpr size_t kMostLinks = 32;
    const auto known = story->curves.find(link);
    if (known != story->curves.end()) {
        return &known->second;
    }
    return story->curves.size() < kMostLinks ? &story->curves[link] : nullptr;
}

std::string shortened(std::string_view text, size_t most) {
    return std::string(text.substr(0, most)) + (text.size() > most ? "..." : "");
}

void addMoment(Story* story, Moment moment) {
    constexpr size_t kMostMoments = 50000;
    constexpr size_t kMostShares = 4 * kMostMoments;
    moment.text = shortened(moment.text, kLongestText);
    if (story->moments.size() < kMostMoments &&
        story->keptShares + moment.shares.size() <= kMostShares) {
        story->keptShares += moment.shares.size();
        story->moments.push_back(std::move(moment));
    } else {
        ++story->momentsLeftOut;
    }
}

int32_t penaltyOf(int32_t signalDbm) {
    // As the daemon's signal monitor has it, which a test compares.
    if (signalDbm >= -64 && signalDbm <= -1) {
        return 0;
    }
    if (signalDbm >= -75) {
        return 60;
    }
    return signalDbm >= -85 ? 120 : 300;
}

}  // namespace lnkd
