// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "explain/story.h"
#include "output/terminal.h"

namespace lnkd {

// "850 ms", "12.3 s", "4 min 05 s", "3 h 12 min".
std::string durationText(int64_t ms);

// "1 socket", "2 sockets".
std::string countText(int64_t count, const std::string& one);

// One thing that happened, in words. Safe for a terminal.
std::string wordsOf(const Moment& moment);

// The whole story for a screen. Of a long log the middle is left out, and rebuilds of the shares
// that follow each other are told in one line, unless `all` is wanted.
std::string screenOf(const Story& story, const std::string& name, bool all,
                     const Terminal& terminal);

}  // namespace lnkd
