// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string_view>
#include <vector>

namespace lnkd {

// Whether a command line, its words ended by NUL as in /proc/<pid>/cmdline, is one of the daemon's:
// it names a chain or a policy rule of its own, and is that of a wrapper tool, of the shell that
// runs it, or of the tool that it becomes.
bool isCommandOfDaemon(std::string_view words);

// Waits until none of the daemon's commands runs any more, two seconds at most: one that it had
// just started outlives it, and would put back what was removed. Returns those that still run.
std::vector<pid_t> waitForCommands();

}  // namespace lnkd
