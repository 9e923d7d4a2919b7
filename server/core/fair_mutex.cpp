// SPDX-License-Identifier: Apache-2.0
#include "core/fair_mutex.h"

#include <algorithm>
#include <chrono>

namespace lnkd {

namespace {

constexpr std::chrono::milliseconds kLookInterval(20);

}  // namespace

void FairMutex::lock() {
    const MutexLock lock(m_queueMutex);
    const uint64_t ticket = enqueue();
    while (m_queue.front() != ticket) {
        m_handedOn.wait(m_queueMutex);
    }
}

bool FairMutex::lockUnless(bool (*givesUp)()) {
    const MutexLock lock(m_queueMutex);
    const uint64_t ticket = enqueue();
    while (m_queue.front() != ticket) {
        if (givesUp()) {
            m_queue.erase(std::find(m_queue.begin(), m_queue.end(), ticket));
            return false;
        }
        m_handedOn.waitUntil(m_queueMutex, std::chrono::steady_clock::now() + kLookInterval);
    }
    return true;
}

void FairMutex::unlock() {
    const MutexLock lock(m_queueMutex);
    m_queue.pop_front();
    m_handedOn.notify_all();
}

uint64_t FairMutex::enqueue() {
    m_queue.push_back(++m_lastTicket);
    return m_lastTicket;
}

}  // namespace lnkd
