// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace lnkd {

// A program that is run for its output or fed with input, without a shell.
class Program {
  public:
    enum class Pipe { kItsOutput, kItsInput };

    Program() = default;
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Starts it; the first word is its path. False with the reason in error().
    bool start(const std::vector<std::string>& words, Pipe pipe);
    // This process's end of the pipe; the caller's from then on.
    int takePipe();
    // Waits for its end. True when that was with status 0.
    bool finish();
    const std::string& error() const { return m_error; }

  private:
    pid_t m_pid = -1;
    int m_pipe = -1;
    std::string m_error;
};

// A file beside the program that runs, or in a folder there.
std::string besideProgram(const std::string& name);

}  // namespace lnkd
