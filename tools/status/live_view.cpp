// SPDX-License-Identifier: Apache-2.0
#include "status/live_view.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>

namespace lnkd {

namespace {

using Clock = std::chrono::steady_clock;

// ECMA-48 and xterm's: the alternate screen, the cursor, erasing to the end of line or screen.
constexpr char kEnter[] = "\033[?1049h\033[?25l\033[H";
constexpr char kLeave[] = "\033[?25h\033[?1049l";
constexpr char kHome[] = "\033[H";
constexpr char kEraseLine[] = "\033[K";
constexpr char kEraseRest[] = "\033[J";

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGTSTP};

volatile std::sig_atomic_t ended = 0;
volatile std::sig_atomic_t resized = 0;
volatile std::sig_atomic_t stopped = 0;

void note(int number) {
    if (number == SIGWINCH) {
        resized = 1;
    } else if (number == SIGTSTP) {
        stopped = 1;
    } else {
        ended = 1;
    }
}

sigset_t watchedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : kSignals) {
        sigaddset(&signals, signal);
    }
    return signals;
}

// Writes all of it, in pieces that find room, so that a signal ends it also when the terminal has
// been stopped or a pipe is full. False when it was ended, or nobody reads.
bool writeWhole(const std::string& text) {
    constexpr size_t kPiece = 512;  // bytes; a pipe has room for more when it says that it has some
    sigset_t none;
    sigemptyset(&none);
    size_t done = 0;
    while (done < text.size()) {
        pollfd polled{STDOUT_FILENO, POLLOUT, 0};
        const int ready = ppoll(&polled, 1, nullptr, &none);
        if (ended != 0 || (ready > 0 && (polled.revents & POLLOUT) == 0)) {
            return false;
        }
        if (ready <= 0) {
            continue;
        }
        const size_t length = std::min(text.size() - done, kPiece);
        const ssize_t n = write(STDOUT_FILENO, text.data() + done, length);
        if (n <= 0 && errno != EINTR && errno != EAGAIN) {
            return false;
        }
        done += static_cast<size_t>(std::max<ssize_t>(n, 0));
    }
    return true;
}

// As many lines as there is room for, each erased behind its text.
std::string onScreen(const std::string& text, size_t height) {
    std::string result = kHome;
    size_t begin = 0;
    for (size_t line = 1; begin < text.size() && (height == 0 || line < height); ++line) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        result += text.substr(begin, end - begin) + kEraseLine + '\n';
        begin = end + 1;
    }
    return result + kEraseRest;
}

}  // namespace

// The signals are let through only where it waits, so that none comes between a look and a wait.
LiveView::LiveView(const Terminal& terminal, std::chrono::milliseconds interval)
    : m_terminal(terminal), m_interval(interval) {
    struct sigaction action {};
    action.sa_handler = note;
    for (const int signal : kSignals) {
        sigaction(signal, &action, nullptr);
    }
    const sigset_t signals = watchedSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    enter();
}

LiveView::~LiveView() {
    leave();
}

void LiveView::enter() {
    if (m_terminal.isTerminal()) {
        writeWhole(kEnter);
    }
}

void LiveView::leave() {
    if (m_terminal.isTerminal()) {
        ended = 0;  // it is to be written all the same
        writeWhole(kLeave);
    }
}

bool LiveView::show(const std::string& text) {
    const bool isTerminal = m_terminal.isTerminal();
    const std::string separator = m_isFirst ? "" : "\n";
    m_isFirst = false;
    return writeWhole(isTerminal ? onScreen(text, m_terminal.height()) : separator + text) &&
           wait();
}

bool LiveView::wait() {
    const Clock::time_point end = Clock::now() + m_interval;
    sigset_t none;
    sigemptyset(&none);
    // One that came while the text was written counts: its look was made before.
    while (ended == 0 && resized == 0 && stopped == 0 && Clock::now() < end) {
        const auto left = std::chrono::ceil<std::chrono::nanoseconds>(end - Clock::now()).count();
        const timespec time{static_cast<time_t>(left / 1'000'000'000),
                            static_cast<long>(left % 1'000'000'000)};
        pollfd polled{STDOUT_FILENO, 0, 0};  // only for its reader's end
        if (ppoll(&polled, 1, &time, &none) > 0) {
            return false;
        }
    }
    if (ended == 0 && stopped != 0) {
        stopped = 0;
        leave();
        raise(SIGSTOP);
        enter();
    }
    resized = 0;  // the look that follows sees the size
    return ended == 0;
}

}  // namespace lnkd
