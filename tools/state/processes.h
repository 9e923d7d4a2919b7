// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <vector>

namespace lnkd {

// The processes that are seen from here; none when that cannot be read.
std::vector<pid_t> readProcesses();

}  // namespace lnkd
