// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "explain/story.h"

namespace lnkd {

// A story for programs. Times are seconds since the first line, and stamps as in the log. With
// `curves` also what plots are drawn from.
std::string jsonOf(const Story& story, const std::string& name, bool curves);

}  // namespace lnkd
