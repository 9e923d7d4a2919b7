// SPDX-License-Identifier: Apache-2.0
#include "selection/live_socket.h"

#include <sys/socket.h>

namespace lnkd {

bool LiveSocket::enter(int fd) {
    const MutexLock lock(m_mutex);
    if (!m_ended) {
        m_fd = fd;
    }
    return !m_ended;
}

void LiveSocket::leave() {
    const MutexLock lock(m_mutex);
    m_fd = -1;
}

void LiveSocket::end() {
    const MutexLock lock(m_mutex);
    m_ended = true;
    if (m_fd >= 0) {
        shutdown(m_fd, SHUT_RDWR);
    }
}

void LiveSocket::allow() {
    const MutexLock lock(m_mutex);
    m_ended = false;
}

}  // namespace lnkd
