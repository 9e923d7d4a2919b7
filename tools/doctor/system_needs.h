// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ctime>
#include <optional>

#include "doctor/need.h"

namespace lnkd {

// Whether a capability, CAP_NET_ADMIN for one, is in force; nothing when that cannot be read.
std::optional<bool> holdsCapability(int capability);

// Who we are, and what the kernel lets us do. It is taken that the daemon is started likewise.
Needs examineRights();

// The tools that packet filter and policy rules are changed with, in this order, and what they run.
Needs examineTools();

// The folder of the control socket.
Need examineSocketFolder();

// Whether the clock has been set since the machine was started.
Need examineClock(time_t now);

// How many connections the kernel tracks, and the file that lists them. Where connection tracking
// is a module of the kernel's, it may not be there before the packet filter has asked for it.
Needs examineConnectionTracking();

// The statistics module's files that belong to no link.
Needs examineModule();

}  // namespace lnkd
