// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "output/terminal.h"
#include "status/picture.h"

namespace lnkd {

// A row for each link. What does not fit the terminal's width is left out, the least important
// column first.
std::string linkTable(const Picture& picture, const Terminal& terminal);

}  // namespace lnkd
