// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

#include "session/command.h"

namespace lnkd {

// Exit status of a session.
enum ExitStatus : int {
    kAllSent = 0,
    kLineRefused = 1,  // a line was wrong; the others were sent
    kUnreachable = 3,  // the daemon was not there, or went away before all was sent
};

struct SessionOptions {
    std::string socketPath;
    int periodMs;      // least time between two messages
    bool interactive;  // a person types: prompt, and say what was sent
};

// One session on the daemon's control socket: commands from standard input, one a line, each
// sent as one whole record.
//
// The daemon takes one record per period of its own and reads the stream without framing, so
// records are never sent faster than `periodMs`; the first goes at once. A wrong line is reported
// on standard error and skipped. The connection is watched whenever the session waits, so a
// daemon that goes away ends the session at once, also at an idle prompt.
class Session {
  public:
    explicit Session(const SessionOptions& options) : m_options(options) {}
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Connects, runs until the input ends or "quit", and returns the exit status. Everything
    // that it refuses or fails at has then been said on standard error. Call it once.
    ExitStatus run();

  private:
    using Clock = std::chrono::steady_clock;

    enum class Input { kLine, kEnd, kError, kDaemonGone };

    bool connectToDaemon();
    Input readLine(std::string* line);
    bool perform(const Command& command);
    bool sendMessage(const msg_t& message);
    bool pauseUntil(Clock::time_point end);
    void reportLine(const std::string& what) const;

    const SessionOptions m_options;
    int m_socket = -1;
    Clock::time_point m_nextSend = Clock::time_point::min();
    std::string m_input;  // read, but not yet given out as lines
    bool m_inputEnded = false;
    bool m_quit = false;
    const char* m_failure = "the daemon closed the connection; is lnkd running?";
    unsigned long m_lineNumber = 0;  // of the line in hand, from 1
};

}  // namespace lnkd
