// SPDX-License-Identifier: Apache-2.0
#include "output/utf8.h"

#include <cstddef>
#include <cstdint>

namespace lnkd {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Bytes of the character that `first` begins; 0 for none.
size_t lengthFrom(uint8_t first) {
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first < 0xE0) {
        return 2;
    }
    if (first >= 0xE0 && first < 0xF0) {
        return 3;
    }
    return first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

// Whether the second byte makes no longer form of a shorter character, no half of a pair and
// nothing beyond the last character.
bool fits(uint8_t first, uint8_t second) {
    const uint8_t least = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const uint8_t most = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    return second >= least && second <= most;
}

}  // namespace

std::string_view takeUtf8(std::string_view& text) {
    const auto byte = [&text](size_t i) { return static_cast<uint8_t>(text[i]); };
    const size_t length = lengthFrom(byte(0));
    bool whole = length > 0 && length <= text.size();
    for (size_t i = 1; whole && i < length; ++i) {
        whole = i == 1 ? fits(byte(0), byte(1)) : (byte(i) & 0xC0U) == 0x80U;
    }
    const std::string_view taken = whole ? text.substr(0, length) : kReplacement;
    text.remove_prefix(whole ? length : 1);
    return taken;
}

}  // namespace lnkd
