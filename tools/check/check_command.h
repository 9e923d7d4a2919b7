// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/subcommand.h"

namespace lnkd {

// "lnkdctl check FILE": what the daemon would make of a configuration file, line by line, and the
// values that would then be in force.
Subcommand checkCommand();

}  // namespace lnkd
