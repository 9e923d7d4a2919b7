// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/subcommand.h"

namespace lnkd {

// "lnkdctl status": what the daemon does, from the kernel and files.
Subcommand statusCommand();

}  // namespace lnkd
