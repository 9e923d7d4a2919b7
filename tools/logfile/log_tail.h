// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include "state/reading.h"

namespace lnkd {

// The last whole lines of a log file, at most `size` bytes of them.
Reading<std::string> readTail(const std::string& path, size_t size);

}  // namespace lnkd
