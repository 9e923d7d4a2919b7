// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/subcommand.h"

namespace lnkd {

// "lnkdctl completion bash|zsh": prints a script that completes lnkdctl's commands, options and
// file names in that shell, made from the table of commands.
Subcommand completionCommand();

}  // namespace lnkd
