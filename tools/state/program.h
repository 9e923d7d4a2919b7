// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace lnkd {

// How a program ended, and what it printed.
struct ProgramResult {
    std::string output;   // standard output
    std::string errors;   // standard error
    bool isCut = false;   // it printed more than there was room for
    int status = -1;      // exit status, 128 + n for signal n; -1 without an end of its own
    std::string problem;  // why there is no status: not started, or killed when its time was over

    bool succeeded() const { return status == 0 && !isCut; }
    // What went wrong, a line: the problem, or the first line of its errors. Empty for success.
    std::string complaint() const;
};

struct ProgramLimits {
    std::chrono::milliseconds time{3000};  // on the monotonic clock, from its start
    size_t outputSize = size_t{4} << 20U;  // bytes of each of output and errors
};

// Runs programs side by side, each in a process group of its own, without a shell: the first word
// is the path, or a name that is looked up in PATH. They have nothing to read, the default signal
// dispositions, and none of the caller's descriptors. One that has not ended in time, or
// has left a process behind that holds its output, is killed with its group. The results are in the
// order of the commands. SIGCHLD must not be ignored.
std::vector<ProgramResult> runPrograms(const std::vector<std::vector<std::string>>& commands,
                                       const ProgramLimits& limits = {});

ProgramResult runProgram(const std::vector<std::string>& words, const ProgramLimits& limits = {});

}  // namespace lnkd
