// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "logfile/log_clock.h"

namespace lnkd {

// A failure that the log tells of, once for all times that it came.
struct Failure {
    std::string text;  // as it came first
    int64_t count = 0;
    LogTime first;
    LogTime last;
};

// Failures by their text; numbers in it, such as a descriptor, make no difference, but those that
// are part of a name do.
class FailureTable {
  public:
    // A log that holds more different ones is none of a daemon's; they are counted together.
    static constexpr size_t kMostFailures = 500;

    void add(const LogTime& at, const std::string& text);
    // The most frequent first.
    std::vector<Failure> sorted() const;

  private:
    std::unordered_map<std::string, size_t> m_places;
    std::vector<Failure> m_failures;
};

}  // namespace lnkd
