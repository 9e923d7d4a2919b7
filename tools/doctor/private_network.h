// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android-base/unique_fd.h>

#include <functional>
#include <string>

namespace lnkd {

// A network namespace of our own, empty, in which rules and sockets can be tried without changing
// anything of the machine's. It is gone with the object.
class PrivateNetwork {
  public:
    // Needs root and the capability NET_ADMIN.
    PrivateNetwork();

    // Why there is none; empty when there is one.
    const std::string& problem() const { return m_problem; }

    // What to say when run() fails.
    static constexpr char notEntered[] = "the network namespace for trials cannot be entered";

    // Runs `body`, and the programs that it starts, in the namespace. False when it cannot be
    // entered; nothing has been run then.
    bool run(const std::function<void()>& body) const;

  private:
    android::base::unique_fd m_namespace;
    std::string m_problem;
};

}  // namespace lnkd
