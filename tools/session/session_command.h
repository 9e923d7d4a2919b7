// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/subcommand.h"

namespace lnkd {

// "lnkdctl" alone: a session on the daemon's control socket.
Subcommand sessionCommand();

}  // namespace lnkd
