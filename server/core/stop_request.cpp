// SPDX-License-Identifier: Apache-2.0
#include "core/stop_request.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <iterator>
#include <thread>

namespace lnkd {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

constexpr int kStopSignals[] = {SIGTERM, SIGINT, SIGHUP};
constexpr milliseconds kLookInterval(20);

std::atomic<bool> signalTaken{false};  // by the main thread
std::atomic<bool> stopAsked{false};    // by a signal that was seen pending, or by requestStop()

sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : kStopSignals) {
        sigaddset(&signals, number);
    }
    return signals;
}

bool isSignalPending() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return std::any_of(std::begin(kStopSignals), std::end(kStopSignals),
                       [&](int number) { return sigismember(&pending, number) == 1; });
}

timespec timespecOf(nanoseconds time) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    return {static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
}

}  // namespace

void blockStopSignals() {
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

bool stopRequested() {
    // Remembered: a signal that the main thread takes is not pending any more, and not yet taken.
    if (!stopAsked && isSignalPending()) {
        stopAsked = true;
    }
    return stopAsked || signalTaken;
}

void requestStop() {
    stopAsked = true;
}

bool waitForStopSignal(milliseconds time) {
    const sigset_t signals = stopSignals();
    const auto deadline = steady_clock::now() + time;
    // The wait ends early, with EINTR, when any other signal is delivered.
    while (!signalTaken) {
        const auto left = std::max<nanoseconds>(deadline - steady_clock::now(), nanoseconds(0));
        const timespec timeout = timespecOf(left);
        if (sigtimedwait(&signals, nullptr, &timeout) > 0) {
            signalTaken = true;
        } else if (left.count() == 0) {
            break;
        }
    }
    return signalTaken;
}

bool sleepUnlessStopped(milliseconds time) {
    const auto deadline = steady_clock::now() + time;
    while (!stopRequested()) {
        const auto left = deadline - steady_clock::now();
        if (left <= nanoseconds(0)) {
            return false;
        }
        std::this_thread::sleep_for(std::min<nanoseconds>(left, kLookInterval));
    }
    return true;
}

}  // namespace lnkd
