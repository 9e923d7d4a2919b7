// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace world {

// Owner of one file descriptor; -1 is none.
class Fd {
  public:
    Fd() = default;
    explicit Fd(int fd) : m_fd(fd) {}
    Fd(Fd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Fd& operator=(Fd&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~Fd() {
        if (m_fd >= 0)
            close(m_fd);
    }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }

  private:
    int m_fd = -1;
};

// Ends the program: without the thing that failed there is no world.
[[noreturn]] inline void die(const std::string& what) {
    std::fprintf(stderr, "%s: %s: %s\n", program_invocation_short_name, what.c_str(),
                 std::strerror(errno));
    std::exit(1);
}

// Takes ownership of the result of an open-like call, which must have worked.
inline Fd checked(int fd, const std::string& what) {
    if (fd < 0)
        die(what);
    return Fd(fd);
}

// A control FIFO: bytes in, whole pieces out.
class Fifo {
  public:
    // Open for writing too: with a writer of its own the FIFO has no end of file.
    explicit Fifo(const char* path)
        : m_fd(checked(open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC), path)) {}

    int fd() const { return m_fd.get(); }

    // Calls `handle` with each piece that a `separator` has ended. Never blocks.
    template <typename Handler>
    void receive(char separator, Handler handle) {
        char bytes[4096];
        const ssize_t count = read(m_fd.get(), bytes, sizeof bytes);
        if (count > 0)
            m_pending.append(bytes, static_cast<std::size_t>(count));
        for (std::size_t end = 0; (end = m_pending.find(separator)) != std::string::npos;) {
            handle(m_pending.substr(0, end));
            m_pending.erase(0, end + 1);
        }
    }

  private:
    Fd m_fd;
    std::string m_pending;
};

// Tells the starter that everything is in place.
inline void sayReady() {
    std::puts("ready");
    std::fflush(stdout);
}

}  // namespace world
