// SPDX-License-Identifier: Apache-2.0
#include "output/nearest.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

namespace lnkd {

namespace {

bool sameLetter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
}

// Damerau's distance, without a second change of letters that were swapped.
size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::vector<size_t>> steps(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                steps[i][j] = i + j;
                continue;
            }
            const size_t change = sameLetter(a[i - 1], b[j - 1]) ? 0 : 1;
            steps[i][j] = std::min(
                    {steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && sameLetter(a[i - 1], b[j - 2]) &&
                sameLetter(a[i - 2], b[j - 1])) {
                steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
            }
        }
    }
    return steps[a.size()][b.size()];
}

}  // namespace

std::string nearestOf(std::string_view word, const std::vector<std::string>& known) {
    constexpr size_t kLongestWord = 64;  // no known word comes near; the work grows with the length
    constexpr size_t kBeginning = 3;     // letters from which a word may be one that broke off
    if (word.size() > kLongestWord) {
        return "";
    }
    std::string nearest;
    size_t least = std::max<size_t>(word.size() / 3, 1);
    for (const std::string& candidate : known) {
        const bool isBeginning =
                word.size() >= kBeginning && candidate.compare(0, word.size(), word) == 0;
        const size_t steps = isBeginning ? 0 : distance(word, candidate);
        if (steps < least || (steps == least && nearest.empty())) {
            nearest = candidate;
            least = steps;
        }
    }
    return nearest;
}

std::string suggestionFor(std::string_view word, const std::vector<std::string>& known) {
    const std::string nearest = nearestOf(word, known);
    if (!nearest.empty()) {
        return "; did you mean " + nearest + "?";
    }
    std::string all;
    for (const std::string& candidate : known) {
        all += (all.empty() ? "" : ", ") + candidate;
    }
    return "; allowed: " + all;
}

}  // namespace lnkd
