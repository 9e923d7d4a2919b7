// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace lnkd {

// How the daemon is asked to end: by SIGTERM, SIGINT or SIGHUP, or by a property that the main
// loop reads. The signals are never delivered. They wait, blocked, where every thread can see
// them, until the main thread takes one: so no call is interrupted half-way, and what lasts looks
// here between its steps.

// Blocks the stop signals, for every thread that is started later too.
void blockStopSignals();

// Whether the daemon is to end. Once true it stays so. Any thread.
bool stopRequested();

// Makes it so without a signal.
void requestStop();

// Sleeps; true, at once, when a stop signal comes or has come. For the main thread, which takes
// the signal.
bool waitForStopSignal(std::chrono::milliseconds time);

// Sleeps; true, within 20 ms, when the daemon is to end. Any thread.
bool sleepUnlessStopped(std::chrono::milliseconds time);

}  // namespace lnkd
