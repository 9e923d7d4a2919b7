// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace lnkd {

// A figure over time, for a plot: at most some thousand points however long it gets. Points that
// are close in time are put together, and ever more of them as time goes on; the highest and the
// lowest of what is put together stay.
class Series {
  public:
    struct Point {
        int64_t atMs;  // of the first value
        double low;
        double high;
        double last;
    };
    static constexpr size_t kMostPoints = 2000;

    // Times never go back.
    void add(int64_t atMs, double value);
    const std::vector<Point>& points() const { return m_points; }

  private:
    void halve();

    std::vector<Point> m_points;
    int64_t m_widthMs = 1;  // of what is put together
};

}  // namespace lnkd
