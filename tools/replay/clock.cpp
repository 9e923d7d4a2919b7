// SPDX-License-Identifier: Apache-2.0
#include "replay/clock.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

namespace lnkd {

namespace {

constexpr int64_t kSecondUs = 1000000;
// A thread that is held up between its look at the clock and its line.
constexpr int64_t kFarthestUs = 2 * kSecondUs;

timeval now{};

// The microseconds of a second in which the daemon's formula gives `ms` beside its whole seconds:
// it divides their difference on its own, toward zero.
struct Range {
    int64_t first;
    int64_t last;
};

Range rangeOf(int64_t startUs, int64_t ms) {
    const Range range = {ms > 0 ? startUs + ms * 1000 : startUs + ms * 1000 - 999,
                         ms < 0 ? startUs + ms * 1000 : startUs + ms * 1000 + 999};
    return {std::max<int64_t>(range.first, 0), std::min(range.last, kSecondUs - 1)};
}

}  // namespace

timeval replayedTime() {
    return now;
}

void setReplayedTime(const timeval& time) {
    now = time;
}

timeval middleOf(int64_t ms) {
    timeval time{};
    time.tv_sec = static_cast<time_t>(ms / 1000);
    time.tv_usec = static_cast<suseconds_t>(ms % 1000 * 1000 + 500);
    return time;
}

bool fitTime(const timeval& start, int64_t stampMs, int32_t elapsedMs, timeval* fitted) {
    const int64_t stampUs = stampMs * 1000 + 500;
    int64_t nearest = kFarthestUs;
    // Some seconds back: a thread may be held up.
    for (int64_t second = stampMs / 1000 - 2; second <= stampMs / 1000 + 1; ++second) {
        // In 32 bits, as the daemon does it.
        const auto seconds = static_cast<uint32_t>(second) - static_cast<uint32_t>(start.tv_sec);
        const auto ms = static_cast<int32_t>(static_cast<uint32_t>(elapsedMs) - seconds * 1000U);
        const Range range = rangeOf(start.tv_usec, ms);
        if (range.first > range.last) {
            continue;
        }
        const int64_t us = std::clamp(stampUs - second * kSecondUs, range.first, range.last);
        const int64_t distance = std::abs(second * kSecondUs + us - stampUs);
        if (distance < nearest) {
            nearest = distance;
            fitted->tv_sec = static_cast<time_t>(second);
            fitted->tv_usec = static_cast<suseconds_t>(us);
        }
    }
    return nearest < kFarthestUs;
}

}  // namespace lnkd

// The linker sends the daemon's calls here (--wrap).
extern "C" int __wrap_gettimeofday(timeval* time, void* zone);
extern "C" time_t __wrap_time(time_t* time);

extern "C" int __wrap_gettimeofday(timeval* time, void* /*zone*/) {
    *time = lnkd::replayedTime();
    return 0;
}

extern "C" time_t __wrap_time(time_t* time) {
    const time_t seconds = lnkd::replayedTime().tv_sec;
    if (time != nullptr) {
        *time = seconds;
    }
    return seconds;
}
