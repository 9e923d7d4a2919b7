// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>

#include <functional>

namespace lnkd {

// A thread and the duty to join it. The standard library's reports that there is no room for one
// more by an exception, and the phone's platform compiles without them.
class Thread {
  public:
    Thread() = default;
    // Starts a thread that runs `body`. When there is no room for it, the result is not joinable.
    explicit Thread(std::function<void()> body);
    // It must have been joined.
    ~Thread();
    Thread(Thread&& other) noexcept;
    Thread& operator=(Thread&& other) noexcept;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    bool joinable() const { return m_joinable; }
    // Waits for its end; nothing when it is not joinable.
    void join();

  private:
    pthread_t m_handle{};
    bool m_joinable = false;
};

}  // namespace lnkd
