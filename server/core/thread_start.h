// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <system_error>
#include <thread>
#include <utility>

namespace lnkd {

// Starts a thread that runs `body`. When there is no room for one more, the result is not
// joinable: the daemon has no exceptions.
template <typename Body>
std::thread startThread(Body&& body) {
    try {
        return std::thread(std::forward<Body>(body));
    } catch (const std::system_error&) {
        return {};
    }
}

}  // namespace lnkd
