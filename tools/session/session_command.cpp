// SPDX-License-Identifier: Apache-2.0
#include "session/session_command.h"

#include <sys/un.h>
#include <unistd.h>

#include "output/text.h"
#include "session/command.h"
#include "session/session.h"

namespace lnkd {

namespace {

constexpr int kDefaultPeriodMs = 1000;  // the daemon's own period unless it is configured

int runSession(const Arguments& arguments) {
    SessionOptions options = {arguments.value("socket", kControlSocketPath), kDefaultPeriodMs,
                              isatty(STDIN_FILENO) != 0};
    if (options.socketPath.empty() || options.socketPath.size() >= sizeof(sockaddr_un::sun_path)) {
        return usageError("", quoted(options.socketPath) + ": not a socket path (1 to 107 bytes)");
    }
    const std::string period = arguments.value("period");
    if (arguments.has("period") && !parseMilliseconds(period, &options.periodMs)) {
        return usageError("", quoted(period) + ": not milliseconds (0 to 86400000)");
    }
    return Session(options).run();
}

}  // namespace

Subcommand sessionCommand() {
    Subcommand command;
    command.summary = "Sends commands from standard input, one a line, to the lnkd daemon.";
    command.options = {
            {"socket", "PATH", std::string("control socket (default ") + kControlSocketPath + ")"},
            {"period", "MS",
             "least time between two messages (default " + std::to_string(kDefaultPeriodMs) + ")"},
            {"version", "", "the version"},
    };
    command.run = runSession;
    return command;
}

}  // namespace lnkd
