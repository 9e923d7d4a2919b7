// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace lnkd {

// Takes the first character off a text that is not empty and returns its bytes; U+FFFD in place of
// a byte that begins none (RFC 3629).
std::string_view takeUtf8(std::string_view& text);

}  // namespace lnkd
