// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/subcommand.h"

namespace lnkd {

// "lnkdctl explain LOG": the story of a test drive from a log of the daemon.
Subcommand explainCommand();

}  // namespace lnkd
