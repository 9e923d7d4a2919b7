// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stand-in for the phone's owned file descriptor.

#include <unistd.h>

namespace android {
namespace base {

// Owns one file descriptor, -1 for none, and closes it when it goes or is replaced. Movable, not
// copyable; not safe for two threads at once.
class unique_fd final {
  public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd&& other) noexcept : fd_(other.release()) {}
    unique_fd& operator=(unique_fd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    unique_fd(const unique_fd&) = delete;
    unique_fd& operator=(const unique_fd&) = delete;
    ~unique_fd() { reset(); }

    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }
    operator int() const { return fd_; }  // NOLINT: the phone's class converts, too

    // Closes what is held and takes over `fd`.
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

    // Gives the descriptor up; the caller owns it.
    [[nodiscard]] int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

  private:
    int fd_ = -1;
};

}  // namespace base
}  // namespace android
