// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android-base/unique_fd.h>

namespace lnkd {

// The mark of the one daemon that owns the rules: a locked file beside the control socket, where
// only root can make or open one.
enum class InstanceLock {
    kTaken,        // by this process now, until `lock` is closed
    kHeld,         // by another process
    kUnavailable,  // there is no such place: an error line, and nobody can be kept out
};

// Tries to take it, without waiting.
InstanceLock takeInstanceLock(android::base::unique_fd& lock);

}  // namespace lnkd
