// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "commands/subcommand.h"

namespace lnkd {

// The commands in the order of the help. The first has no name: it is the session that lnkdctl
// holds when no command is named.
const std::vector<Subcommand>& subcommands();

// The command of a name; null when there is none.
const Subcommand* findSubcommand(const std::string& name);

}  // namespace lnkd
