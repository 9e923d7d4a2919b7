// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "output/terminal.h"
#include "status/picture.h"
#include "status/warnings.h"

namespace lnkd {

// The status for people, in lines.
std::string statusScreen(const Observation& seen, const Picture& picture,
                         const std::vector<Warning>& warnings, const Terminal& terminal);

}  // namespace lnkd
