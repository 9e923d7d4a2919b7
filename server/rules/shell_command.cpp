// SPDX-License-Identifier: Apache-2.0
#include "rules/shell_command.h"

#include <fcntl.h>
#include <paths.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

#include "core/child_process.h"
#include "core/stop_request.h"

namespace lnkd {

using android::base::unique_fd;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr seconds kTimeLimit(10);
constexpr seconds kTimeLimitAfterStop(1);
constexpr seconds kTimeToDie(1);  // after SIGKILL: only a process that hangs in the kernel needs it
constexpr milliseconds kLookInterval(20);
constexpr microseconds kShortestNap(100);
constexpr microseconds kLongestNap(5000);

constexpr char kVendorShell[] = "/vendor/bin/sh";

// The phone's policy lets vendor programs run the shell of their own partition only.
const char* shellPath() {
    return access(kVendorShell, X_OK) == 0 ? kVendorShell : _PATH_BSHELL;
}

// Starts the shell with its output in `output`. Returns its process number, or -1.
pid_t spawnShell(const char* line, int output) {
    const char* const arguments[] = {"sh", "-c", line, nullptr};
    ChildStreams streams;
    streams.output = output;
    return startChild(shellPath(), arguments, streams, ChildGroup::kOwn);
}

}  // namespace

ShellCommand::ShellCommand(const char* line) : m_deadline(Clock::now() + kTimeLimit) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    m_output.reset(ends[0]);
    const unique_fd input(ends[1]);
    m_pid = spawnShell(line, input.get());
}

ShellCommand::~ShellCommand() {
    finish();
}

milliseconds ShellCommand::timeLeft() {
    const Clock::time_point now = Clock::now();
    if (!m_stopSeen && stopRequested()) {
        m_stopSeen = true;
        m_deadline = std::min<Clock::time_point>(m_deadline, now + kTimeLimitAfterStop);
    }
    const auto left = std::chrono::ceil<milliseconds>(m_deadline - now);
    return std::max(left, milliseconds(0));
}

bool ShellCommand::fillBuffer() {
    for (;;) {
        const milliseconds left = timeLeft();
        if (left.count() == 0) {
            m_outOfTime = true;
            return false;
        }
        pollfd polled{m_output.get(), POLLIN, 0};
        const int ready = poll(&polled, 1, static_cast<int>(std::min(left, kLookInterval).count()));
        if (ready > 0) {
            const ssize_t n = read(m_output.get(), m_buffer, sizeof(m_buffer));
            m_begin = 0;
            m_end = n > 0 ? static_cast<size_t>(n) : 0;
            return n > 0;
        }
        if (ready < 0 && errno != EINTR) {
            return false;
        }
    }
}

bool ShellCommand::readLine(char* out, size_t size) {
    size_t length = 0;
    while (length < size - 1) {
        if (m_begin == m_end && !fillBuffer()) {
            break;
        }
        const size_t available = std::min(m_end - m_begin, size - 1 - length);
        const char* const from = m_buffer + m_begin;
        const void* const lineEnd = memchr(from, '\n', available);
        const size_t taken =
                lineEnd == nullptr
                        ? available
                        : static_cast<size_t>(static_cast<const char*>(lineEnd) - from) + 1;
        memcpy(out + length, from, taken);
        length += taken;
        m_begin += taken;
        if (lineEnd != nullptr) {
            break;
        }
    }
    out[length] = '\0';
    return length > 0;
}

bool ShellCommand::finish() {
    // The shell mostly ends with its output; one that closes it and goes on has its time, too.
    for (microseconds nap = kShortestNap; !m_outOfTime && !isReaped();
         nap = std::min(2 * nap, kLongestNap)) {
        std::this_thread::sleep_for(nap);
        m_outOfTime = timeLeft().count() == 0;
    }
    // Before the shell is reaped, which may have ended and left others behind: until then nobody
    // else can get the number of its group.
    if (m_pid > 0) {
        kill(-m_pid, SIGKILL);
        const Clock::time_point deadline = Clock::now() + kTimeToDie;
        while (!isReaped() && Clock::now() < deadline) {
            std::this_thread::sleep_for(kShortestNap);
        }
        m_pid = -1;
    }
    return !m_outOfTime;
}

bool ShellCommand::isReaped() {
    if (m_pid > 0) {
        const pid_t ended = waitpid(m_pid, nullptr, WNOHANG);
        if (ended == m_pid || (ended < 0 && errno == ECHILD)) {
            m_pid = -1;
        }
    }
    return m_pid <= 0;
}

}  // namespace lnkd
