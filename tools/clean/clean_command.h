// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/subcommand.h"

namespace lnkd {

// "lnkdctl clean": removes what a killed daemon left in the kernel.
Subcommand cleanCommand();

}  // namespace lnkd
