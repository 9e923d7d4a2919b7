// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "explain/story.h"

namespace lnkd {

// Writes a story with its plots as one HTML page, by the program that draws the reports of the lab
// too. False with the reason in `error`, and no page.
bool writePage(const Story& story, const std::string& name, const std::string& path,
               std::string* error);

}  // namespace lnkd
