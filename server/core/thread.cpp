// SPDX-License-Identifier: Apache-2.0
#include "core/thread.h"

#include <cstdlib>
#include <memory>
#include <utility>

namespace lnkd {

namespace {

void* runBody(void* argument) {
    const std::unique_ptr<std::function<void()>> body(
            static_cast<std::function<void()>*>(argument));
    (*body)();
    return nullptr;
}

}  // namespace

Thread::Thread(std::function<void()> body) {
    auto owned = std::make_unique<std::function<void()>>(std::move(body));
    m_joinable = pthread_create(&m_handle, nullptr, runBody, owned.get()) == 0;
    if (m_joinable) {
        static_cast<void>(owned.release());  // the thread's now
    }
}

Thread::~Thread() {
    if (m_joinable) {
        abort();  // its body uses what its owner is about to release
    }
}

Thread::Thread(Thread&& other) noexcept
    : m_handle(other.m_handle), m_joinable(std::exchange(other.m_joinable, false)) {}

Thread& Thread::operator=(Thread&& other) noexcept {
    std::swap(m_handle, other.m_handle);
    std::swap(m_joinable, other.m_joinable);
    return *this;
}

void Thread::join() {
    if (m_joinable) {
        pthread_join(m_handle, nullptr);
        m_joinable = false;
    }
}

}  // namespace lnkd
