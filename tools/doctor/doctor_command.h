// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/subcommand.h"

namespace lnkd {

// "lnkdctl doctor": what this machine offers of what the daemon needs, and what to do about the
// rest. Changes nothing.
Subcommand doctorCommand();

}  // namespace lnkd
