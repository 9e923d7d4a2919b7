// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <unistd.h>

namespace lnkd {

// While it lives, nothing reaches standard error: where there is no logcat, that is where the
// daemon's functions log, and what they say is not for whoever asked us.
class QuietLog {
  public:
    QuietLog() : m_saved(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
        const android::base::unique_fd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
        if (m_saved.ok() && nowhere.ok()) {
            dup2(nowhere.get(), STDERR_FILENO);
        }
    }
    ~QuietLog() {
        if (m_saved.ok()) {
            dup2(m_saved.get(), STDERR_FILENO);
        }
    }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;

  private:
    android::base::unique_fd m_saved;
};

}  // namespace lnkd
