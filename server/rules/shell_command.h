// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>

namespace lnkd {

// A command line that the system shell runs, in a process group of its own: a Ctrl-C at the
// daemon's terminal does not reach it, and everything that it started can be ended at once. It
// starts with the default signal dispositions, no signal blocked and nothing to read; of the
// daemon's descriptors it has the pipe for its output, and standard error.
//
// It has 10 s, on the monotonic clock, from its start; once a stop was asked for, 1 s from then,
// or from a later start.
class ShellCommand {
  public:
    // `line` is interpreted by the shell.
    explicit ShellCommand(const char* line);
    // Ends what still runs.
    ~ShellCommand();
    ShellCommand(const ShellCommand&) = delete;
    ShellCommand& operator=(const ShellCommand&) = delete;

    // Whether the shell could be started.
    bool started() const { return m_pid > 0; }

    // Waits for the next line of output and copies it, its line end included, or as much of it as
    // fits; always terminated. False at the end of the output, or when the time is over.
    bool readLine(char* out, size_t size);

    // Waits for the end of the shell. False when the time was over before that, or before the end
    // of the output: then the process group has been killed.
    bool finish();

  private:
    using Clock = std::chrono::steady_clock;

    // What is left of its time, not below 0.
    std::chrono::milliseconds timeLeft();
    // Waits for more output; false when there will be none in time.
    bool fillBuffer();
    // Whether there is no shell left to wait for; reaps one that has ended.
    bool isReaped();

    pid_t m_pid = -1;  // of the shell, and its group; -1 when there is nothing to reap
    android::base::unique_fd m_output;
    Clock::time_point m_deadline;
    bool m_stopSeen = false;
    bool m_outOfTime = false;
    char m_buffer[1024];
    size_t m_begin = 0;  // of what has been read and not been taken
    size_t m_end = 0;
};

}  // namespace lnkd
