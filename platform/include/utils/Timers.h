// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stand-in for the phone's clocks.

#include <cstdint>

typedef int64_t nsecs_t;  // nanoseconds

enum {
    SYSTEM_TIME_REALTIME = 0,   // wall clock, since the Unix epoch
    SYSTEM_TIME_MONOTONIC = 1,  // never set, stands while the machine sleeps
};

// Reads a clock, in nanoseconds.
nsecs_t systemTime(int clock = SYSTEM_TIME_MONOTONIC);
