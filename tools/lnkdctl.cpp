// SPDX-License-Identifier: Apache-2.0
#include <getopt.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "command.h"
#include "session.h"

namespace lnkd {
namespace {

constexpr int kDefaultPeriodMs = 1000;  // the daemon's own period unless it is configured

void printHelp() {
    std::printf(
            "Usage: lnkdctl [--socket PATH] [--period MS]\n"
            "Sends commands from standard input, one a line, to the lnkd daemon.\n"
            "\n"
            "  --socket PATH   control socket (default %s)\n"
            "  --period MS     least time between two messages (default %d)\n"
            "  --help          this text\n"
            "  --version       the version\n"
            "\n"
            "Commands:\n"
            "%s"
            "Blank lines and lines that begin with # are skipped.\n"
            "\n"
            "Exit status: 0 all sent, 1 a line was refused, 2 usage, 3 no daemon.\n",
            kControlSocketPath, kDefaultPeriodMs, commandHelp().c_str());
}

ExitStatus usageError(const std::string& what) {
    std::fprintf(stderr, "lnkdctl: %s\nTry \"lnkdctl --help\".\n", what.c_str());
    return kUsageError;
}

ExitStatus runTool(int argc, char** argv) {
    const option longOptions[] = {{"socket", required_argument, nullptr, 's'},
                                  {"period", required_argument, nullptr, 'p'},
                                  {"help", no_argument, nullptr, 'h'},
                                  {"version", no_argument, nullptr, 'v'},
                                  {nullptr, 0, nullptr, 0}};
    SessionOptions options = {kControlSocketPath, kDefaultPeriodMs, isatty(STDIN_FILENO) != 0};
    for (int letter; (letter = getopt_long(argc, argv, "", longOptions, nullptr)) != -1;) {
        switch (letter) {
            case 's':
                options.socketPath = optarg;
                if (options.socketPath.empty() ||
                    options.socketPath.size() >= sizeof(sockaddr_un::sun_path)) {
                    return usageError(quoted(optarg) + ": not a socket path (1 to 107 bytes)");
                }
                break;
            case 'p':
                if (!parseMilliseconds(optarg, &options.periodMs)) {
                    return usageError(quoted(optarg) + ": not milliseconds (0 to 86400000)");
                }
                break;
            case 'h':
                printHelp();
                return kAllSent;
            case 'v':
                std::printf("lnkdctl 3.0.4.5\n");
                return kAllSent;
            default:  // getopt_long has said what is wrong
                std::fprintf(stderr, "Try \"lnkdctl --help\".\n");
                return kUsageError;
        }
    }
    if (optind < argc) {
        return usageError(quoted(argv[optind]) + ": commands are read from standard input");
    }
    return Session(options).run();
}

}  // namespace
}  // namespace lnkd

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // also for a reader of our output that is gone
    return lnkd::runTool(argc, argv);
}
