// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/time.h>

#include <cstdint>

namespace lnkd {

// The time of day as the replayed daemon sees it: gettimeofday() and time() of this program.
timeval replayedTime();
void setReplayedTime(const timeval& time);

// The middle of a millisecond, the most that a line's stamp tells.
timeval middleOf(int64_t ms);

// When, close to a stamp, the daemon must have looked at its hysteresis window, which began at
// `start`, to find that `elapsedMs` had passed. False when that is nowhere near.
//
// The daemon reckons in microseconds and logs milliseconds. Of the moments that give the logged
// figure this is the one next to the stamp, so that what one choice of a moment is off by does not
// add to the next one's.
bool fitTime(const timeval& start, int64_t stampMs, int32_t elapsedMs, timeval* now);

}  // namespace lnkd
