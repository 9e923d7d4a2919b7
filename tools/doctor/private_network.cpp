// SPDX-License-Identifier: Apache-2.0
#include "doctor/private_network.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>

#include "core/thread.h"
#include "doctor/system_needs.h"
#include "state/reading.h"

namespace lnkd {

namespace {

constexpr char kNetwork[] = "/proc/thread-self/ns/net";

}  // namespace

// A namespace is a thread's, and an open file keeps it: the thread that makes it may end.
PrivateNetwork::PrivateNetwork() {
    if (holdsCapability(CAP_NET_ADMIN) != true) {
        m_problem = "only root with NET_ADMIN can try it";
        return;
    }
    m_problem = "no thread for a network namespace";
    Thread maker([this] {
        if (unshare(CLONE_NEWNET) != 0) {
            m_problem = problemWith("no network namespace for trials");
            return;
        }
        m_namespace.reset(open(kNetwork, O_RDONLY | O_CLOEXEC));
        m_problem = m_namespace.ok() ? "" : problemWith(kNetwork);
    });
    maker.join();
}

bool PrivateNetwork::run(const std::function<void()>& body) const {
    bool hasEntered = false;
    Thread visitor([this, &body, &hasEntered] {
        hasEntered = m_namespace.ok() && setns(m_namespace.get(), CLONE_NEWNET) == 0;
        if (hasEntered) {
            body();
        }
    });
    visitor.join();
    return hasEntered;
}

}  // namespace lnkd
