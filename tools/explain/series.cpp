// SPDX-License-Identifier: Apache-2.0
#include "explain/series.h"

#include <algorithm>

namespace lnkd {

void Series::add(int64_t atMs, double value) {
    if (!m_points.empty() && m_points.back().atMs / m_widthMs == atMs / m_widthMs) {
        Point& point = m_points.back();
        point.low = std::min(point.low, value);
        point.high = std::max(point.high, value);
        point.last = value;
        return;
    }
    m_points.push_back({atMs, value, value, value});
    while (m_points.size() > kMostPoints) {
        halve();
    }
}

void Series::halve() {
    m_widthMs *= 2;
    std::vector<Point> kept;
    for (const Point& point : m_points) {
        if (!kept.empty() && kept.back().atMs / m_widthMs == point.atMs / m_widthMs) {
            kept.back().low = std::min(kept.back().low, point.low);
            kept.back().high = std::max(kept.back().high, point.high);
            kept.back().last = point.last;
        } else {
            kept.push_back(point);
        }
    }
    m_points = std::move(kept);
}

}  // namespace lnkd
