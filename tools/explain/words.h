// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "explain/story.h"
#include "output/terminal.h"

namespace lnkd {

// One thing that happened, in words. Safe for a terminal.
std::string wordsOf(const Moment& moment);

// The whole story for a screen. Of a long log the middle is left out, and rebuilds of the shares
// that follow each other are told in one line, unless `all` is wanted.
std::string screenOf(const Story& story, const std::string& name, bool all,
                     const Terminal& terminal);

}  // namespace lnkd
