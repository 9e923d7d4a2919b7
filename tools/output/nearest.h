// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lnkd {

// The known word that a mistyped one most likely meant: the one that the fewest changed, added,
// missing or swapped letters make of it, or that it begins; the first of several. Empty when none
// is near.
std::string nearestOf(std::string_view word, const std::vector<std::string>& known);

// The end of an error line about an unknown word: "; did you mean X?" when one is near, else
// "; allowed: X, Y, Z".
std::string suggestionFor(std::string_view word, const std::vector<std::string>& known);

}  // namespace lnkd
