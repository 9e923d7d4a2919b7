// SPDX-License-Identifier: Apache-2.0
#include "output/nearest.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>

#include "output/text.h"

namespace lnkd {

namespace {

bool sameLetter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
}

constexpr size_t kLongestWord = 64;  // no known word comes near; the work grows with the length

// Damerau's distance, without a second change of letters that were swapped, of a word of at most
// kLongestWord letters. A row is for a letter of `known`, as far as its distance to each beginning
// of the word; only the last three count.
size_t distance(std::string_view word, std::string_view known) {
    std::array<std::array<size_t, kLongestWord + 1>, 3> rows;
    for (size_t i = 0; i <= known.size(); ++i) {
        std::array<size_t, kLongestWord + 1>& row = rows[i % 3];
        const std::array<size_t, kLongestWord + 1>& above = rows[(i + 2) % 3];
        for (size_t j = 0; j <= word.size(); ++j) {
            if (i == 0 || j == 0) {
                row[j] = i + j;
                continue;
            }
            const size_t change = sameLetter(known[i - 1], word[j - 1]) ? 0 : 1;
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + change});
            if (i > 1 && j > 1 && sameLetter(known[i - 1], word[j - 2]) &&
                sameLetter(known[i - 2], word[j - 1])) {
                row[j] = std::min(row[j], rows[(i + 1) % 3][j - 2] + 1);
            }
        }
    }
    return rows[known.size() % 3][word.size()];
}

// The least that a distance can be.
size_t differenceOf(size_t a, size_t b) {
    return std::max(a, b) - std::min(a, b);
}

}  // namespace

std::string nearestOf(std::string_view word, const std::vector<std::string>& known) {
    constexpr size_t kBeginning = 3;  // letters from which a word may be one that broke off
    if (word.size() > kLongestWord) {
        return "";
    }
    std::string nearest;
    size_t least = std::max<size_t>(word.size() / 3, 1);
    for (const std::string& candidate : known) {
        const bool isBeginning =
                word.size() >= kBeginning && candidate.compare(0, word.size(), word) == 0;
        if (!isBeginning && differenceOf(word.size(), candidate.size()) > least) {
            continue;
        }
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
    return "; allowed: " + joined(known);
}

}  // namespace lnkd
