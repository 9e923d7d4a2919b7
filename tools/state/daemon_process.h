// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "state/reading.h"

namespace lnkd {

// The daemon that owns the rules, as the kernel knows it.
struct DaemonProcess {
    pid_t pid = 0;
    int64_t startedAt = 0;   // s since the Unix epoch; 0 when it cannot be read
    int64_t residentKb = 0;  // 0 when it cannot be read
    int64_t privateKb = 0;   // what it alone holds of that; 0 when it cannot be read
    // Where its log can be read when that is a file, and what that file is called; else empty.
    std::string logPath;
    std::string logName;
};

// Who holds the daemon's instance lock: nobody, or that process. It is a problem when the lock
// file cannot be looked at (only root can), its holder cannot be seen from here, or that is a clean
// at work. The control socket is not touched.
Reading<std::optional<DaemonProcess>> findDaemon();

// A process that runs the daemon's program without holding its lock: one that was disabled by
// property, has torn its rules down and idles, or that could take no lock. 0 when there is none.
pid_t findIdleDaemon();

}  // namespace lnkd
