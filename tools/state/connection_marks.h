// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>

#include "state/reading.h"

namespace lnkd {

constexpr char kConnectionTable[] = "/proc/net/nf_conntrack";

// How many connections are tracked.
struct ConnectionCount {
    size_t all = 0;
    size_t live = 0;  // without TCP connections that are being closed, or are remembered closed
};

// Tracked connections by their mark; 0 is that of a connection without one.
using ConnectionsByMark = std::map<uint32_t, ConnectionCount>;

// Counts the lines of a connection table. The text comes in pieces, cut anywhere.
class MarkCounter {
  public:
    void take(std::string_view piece);
    const ConnectionsByMark& counts() const { return m_counts; }

  private:
    void takeLine(std::string_view line);

    ConnectionsByMark m_counts;
    std::string m_begun;  // the line that the next piece goes on with
};

// Reads the table once; ends after two seconds at the latest, which is a problem.
Reading<ConnectionsByMark> countConnections(const char* table = kConnectionTable);

// How many connections the kernel tracks, and how many it can.
struct TrackedConnections {
    int64_t count = 0;
    int64_t limit = 0;
};
Reading<TrackedConnections> readTrackedConnections();

}  // namespace lnkd
