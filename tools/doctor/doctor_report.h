// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "doctor/need.h"
#include "output/terminal.h"

namespace lnkd {

// Exit status: something that the daemon needs is missing, or could not be tried.
constexpr int kNeedMissing = 1;
constexpr int kNeedUnknown = 3;

int exitStatusFor(const Needs& needs);

// For a person: a line for each subject whose needs are met, and for each need that is not what it
// means and what to do. With `all`, a line for each need.
std::string doctorText(const Needs& needs, bool all, const Terminal& terminal);

// For a program, see doctor.schema.json.
std::string doctorJson(const Needs& needs);

}  // namespace lnkd
