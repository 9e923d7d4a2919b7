// SPDX-License-Identifier: Apache-2.0
#include "core/single_instance.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#define LNKD_LOG_TAG "DVX-Lnkd-daemon"
#include "core/log.h"

namespace lnkd {

namespace {

// Never removed: a process that had just opened it would lock a file that nobody else can find.
constexpr char kLockFile[] = "/dev/socket/lnkd.lock";

}  // namespace

InstanceLock takeInstanceLock(android::base::unique_fd& lock) {
    lock.reset(open(kLockFile, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    // A lock of the process, not of the open file: that would live on in a child which a killed
    // daemon was just starting.
    struct flock whole {};
    whole.l_type = F_WRLCK;
    if (lock.ok() && fcntl(lock.get(), F_SETLK, &whole) == 0) {
        return InstanceLock::kTaken;
    }
    if (lock.ok() && (errno == EAGAIN || errno == EACCES)) {
        return InstanceLock::kHeld;
    }
    LNKD_LOGE("no lock on %s, a second daemon is not kept out: %s", kLockFile, strerror(errno));
    return InstanceLock::kUnavailable;
}

}  // namespace lnkd
