// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "status/picture.h"
#include "status/warnings.h"

namespace lnkd {

// "running", "stopped", "disabled", "leftovers" or "unknown".
const char* nameOf(DaemonState state);

// The status for programs; status.schema.json beside this file describes it.
std::string statusJson(const Observation& seen, const Picture& picture,
                       const std::vector<Warning>& warnings);

}  // namespace lnkd
