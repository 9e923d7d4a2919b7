// SPDX-License-Identifier: Apache-2.0
#include "explain/tunables.h"

#include <algorithm>
#include <iterator>

#include "core/text_values.h"
#include "output/nearest.h"
#include "output/text.h"

namespace lnkd {

namespace {

struct Tunable {
    const char* key;
    int most;
    const char* whyNot;  // null: it can be replayed
};

constexpr char kRates[] = "the log has the rates that came of it, not the records they are made of";
constexpr char kProbes[] = "probes that were not made are in no log";
constexpr char kPasses[] = "when the daemon looks is what the log says";
constexpr int kHour = 3600;

constexpr Tunable kTunables[] = {
        {"alpha_percent", 100, nullptr},
        {"t_hyst_s", 24 * kHour, nullptr},
        {"n_hyst", 1000000, nullptr},
        {"min_ping_times", 1000000, nullptr},
        {"wifi_threshold", 1000000000, nullptr},
        {"min_ratio_change", 100, nullptr},
        {"ping_interval_ms", 0, kProbes},
        {"rtt_server", 0, kProbes},
        {"rtt_exit_threshold", 0, kProbes},
        {"mini_est_interval", 0, kPasses},
        {"wan_threshold", 0, kRates},
        {"mini_stale_interval", 0, kRates},
        {"ideal_est_window", 0, kRates},
        {"mini_rate_window", 0, kRates},
        {"estimate_pack_num", 0, kRates},
        {"best_est_cache_size", 0, kRates},
};

std::vector<std::string> replayable() {
    std::vector<std::string> keys;
    for (const Tunable& tunable : kTunables) {
        if (tunable.whyNot == nullptr) {
            keys.emplace_back(tunable.key);
        }
    }
    return keys;
}

const Tunable* findTunable(const std::string& key, std::string* error) {
    const auto* const found =
            std::find_if(std::begin(kTunables), std::end(kTunables),
                         [&key](const Tunable& tunable) { return key == tunable.key; });
    if (found == std::end(kTunables)) {
        *error = quoted(key) + ": not a tunable of a replay" + suggestionFor(key, replayable());
        return nullptr;
    }
    if (found->whyNot != nullptr) {
        *error = quoted(key) + ": cannot be replayed, " + found->whyNot +
                 "; allowed: " + replayableTunables();
        return nullptr;
    }
    return found;
}

bool parseValue(const Tunable& tunable, const std::string& text, int* value, std::string* error) {
    *value = parseInt(text.c_str());
    if (isAllDigits(text) && *value <= tunable.most) {
        return true;
    }
    *error = quoted(text) + ": not a value of " + tunable.key + " (0 to " +
             std::to_string(tunable.most) + ")";
    return false;
}

}  // namespace

std::string replayableTunables() {
    return joined(replayable());
}

bool parseTunables(const std::string& text, std::vector<std::string>* words, std::string* error) {
    words->clear();
    for (const std::string& word : splitList(text)) {
        const size_t equals = std::min(word.find('='), word.size());
        const Tunable* const tunable = findTunable(word.substr(0, equals), error);
        int value = 0;
        if (tunable == nullptr ||
            !parseValue(*tunable, word.substr(std::min(equals + 1, word.size())), &value, error)) {
            return false;
        }
        words->push_back(std::string(tunable->key) + '=' + std::to_string(value));
    }
    if (words->empty()) {
        *error = quoted(text) + ": names no tunable; the use is KEY=VALUE,KEY=VALUE";
    }
    return !words->empty();
}

bool parseSweep(const std::string& text, Sweep* sweep, std::string* error) {
    constexpr int kMostValues = 1001;
    const size_t equals = std::min(text.find('='), text.size());
    const Tunable* const tunable = findTunable(text.substr(0, equals), error);
    if (tunable == nullptr) {
        return false;
    }
    const std::string range = text.substr(std::min(equals + 1, text.size()));
    const size_t dots = range.find("..");
    const size_t slash = std::min(range.find('/'), range.size());
    if (dots == std::string::npos || slash < dots) {
        *error = quoted(text) + ": no range; the use is KEY=FROM..TO/STEP";
        return false;
    }
    int from = 0;
    int to = 0;
    int step = 1;
    if (!parseValue(*tunable, range.substr(0, dots), &from, error) ||
        !parseValue(*tunable, range.substr(dots + 2, slash - dots - 2), &to, error) ||
        (slash < range.size() &&
         !parseValue({tunable->key, 1000000000, nullptr}, range.substr(slash + 1), &step, error))) {
        return false;
    }
    if (step == 0 || to < from || (to - from) / step >= kMostValues) {
        *error = quoted(range) + ": not a range of 1 to " + std::to_string(kMostValues) + " values";
        return false;
    }
    sweep->key = tunable->key;
    for (int64_t value = from; value <= to; value += step) {
        sweep->values.push_back(static_cast<int>(value));
    }
    return true;
}

}  // namespace lnkd
