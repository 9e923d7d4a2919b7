// SPDX-License-Identifier: Apache-2.0
#include "replay/yardstick.h"

#include <algorithm>

#include "core/parameters.h"
#include "replay/sink.h"

namespace lnkd {

namespace {

constexpr size_t kResults = 3;
constexpr int32_t kMissMs = INT32_MAX;
constexpr int32_t kBridging = 5;  // any limit of misses at which an answer is rated

}  // namespace

int32_t Yardstick::take(const std::string& link, int32_t rttMs) {
    Parameters* const parameters = Parameters::instance();
    const int32_t limit = parameters->min_ping_times;
    parameters->min_ping_times = kBridging;
    Sink::instance().mute(true);
    Link& known = m_links[link];
    if (known.rated == nullptr) {
        known.rated = std::make_unique<InterfaceRtt>(link.c_str(), false);
    }
    known.last.push_back(rttMs < 0 ? kMissMs : rttMs);
    if (known.last.size() > kResults) {
        known.last.erase(known.last.begin());
    }
    std::vector<int32_t> sorted = known.last;
    std::sort(sorted.begin(), sorted.end());
    const int32_t median = sorted[sorted.size() / 2];
    int32_t level = InterfaceRtt::kFailed;
    if (median != kMissMs) {
        known.rated->m_shortpreviousSpeed = {median};
        known.rated->m_longpreviousSpeed = {median};
        known.rated->setSpeed(median);
        level = known.rated->m_networkLevel;
    }
    Sink::instance().mute(false);
    parameters->min_ping_times = limit;
    return level;
}

}  // namespace lnkd
