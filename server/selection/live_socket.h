// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/thread_annotations.h"

namespace lnkd {

// The socket of the probe in hand, where another thread can end that probe: a call that waits on it
// returns when it is shut down. So nobody waits for a target that is slow on purpose.
class LiveSocket {
  public:
    // Makes `fd`, which stays the caller's, the live one. False when probes have been ended.
    bool enter(int fd) EXCLUDES(m_mutex);
    // Forgets it; before it is closed, or its number could be another file's.
    void leave() EXCLUDES(m_mutex);

    // Ends the probe in hand, if there is one, and refuses those to come.
    void end() EXCLUDES(m_mutex);
    // Lets them come again, for a new thread.
    void allow() EXCLUDES(m_mutex);

  private:
    Mutex m_mutex;
    int m_fd GUARDED_BY(m_mutex) = -1;
    bool m_ended GUARDED_BY(m_mutex) = false;
};

}  // namespace lnkd
