// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <deque>

#include "core/thread_annotations.h"

namespace lnkd {

// A mutex that goes to whoever has waited longest, for sections that last seconds: nobody who
// comes again and again keeps another out, and one who waits can give up without losing its place
// before that.
class CAPABILITY("mutex") FairMutex {
  public:
    void lock() ACQUIRE();
    // Like lock(), but looks now and then, at least each 20 ms, whether `givesUp`; then false.
    bool lockUnless(bool (*givesUp)()) TRY_ACQUIRE(true);
    void unlock() RELEASE();

  private:
    uint64_t enqueue() REQUIRES(m_queueMutex);

    Mutex m_queueMutex;
    CondVar m_handedOn;
    // Tickets in order of arrival; the first is the holder's.
    std::deque<uint64_t> m_queue GUARDED_BY(m_queueMutex);
    uint64_t m_lastTicket GUARDED_BY(m_queueMutex) = 0;
};

}  // namespace lnkd
