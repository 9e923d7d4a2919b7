// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace lnkd {

// The tunables whose effect a log is enough to tell, for messages.
std::string replayableTunables();

// Reads "alpha_percent=30,n_hyst=2" into "KEY=VALUE" words. False for what cannot be replayed, with
// the reason, which begins with the offending word.
bool parseTunables(const std::string& text, std::vector<std::string>* words, std::string* error);

// A tunable that takes several values.
struct Sweep {
    std::string key;
    std::vector<int> values;
};

// Reads "alpha_percent=0..100/10", from, to and step; without the step it is 1.
bool parseSweep(const std::string& text, Sweep* sweep, std::string* error);

}  // namespace lnkd
