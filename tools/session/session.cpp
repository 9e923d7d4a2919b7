// SPDX-License-Identifier: Apache-2.0
#include "session/session.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace lnkd {
namespace {

using std::chrono::milliseconds;

constexpr size_t kMaxLine = 4096;  // bytes; no command comes near, a file of zeros must not grow us
constexpr milliseconds kFullBufferRetry(100);
constexpr milliseconds kNotTakenLimit(60000);  // far above any sensible period of the daemon

}  // namespace

Session::~Session() {
    if (m_socket >= 0) {
        close(m_socket);
    }
}

ExitStatus Session::run() {
    if (!connectToDaemon()) {
        return kUnreachable;
    }
    if (m_options.interactive) {
        std::printf(
                "The daemon serves this one session until it is restarted; "
                "\"help\" lists the commands, \"quit\" ends it.\n");
    }
    ExitStatus status = kAllSent;
    std::string line;
    std::string error;
    Command command;
    while (!m_quit) {
        switch (readLine(&line)) {
            case Input::kEnd:
                if (m_options.interactive) {
                    std::printf("\n");
                }
                return status;
            case Input::kError:
                std::fprintf(stderr, "lnkdctl: cannot read commands: %s\n", std::strerror(errno));
                return kLineRefused;
            case Input::kDaemonGone:
                std::fprintf(stderr, "%slnkdctl: %s\n", m_options.interactive ? "\n" : "",
                             m_failure);
                return kUnreachable;
            case Input::kLine:
                break;
        }
        if (line.size() > kMaxLine) {
            reportLine("longer than " + std::to_string(kMaxLine) + " bytes");
            status = kLineRefused;
        } else if (!parseCommand(line, &command, &error)) {
            reportLine(error);
            status = kLineRefused;
        } else if (!perform(command)) {
            reportLine(std::string(command.action == Action::kSend ? "not sent: " : "") +
                       m_failure);
            return kUnreachable;
        }
    }
    return status;
}

// The socket does not block: a connect that the backlog has no room for, and a send that the
// buffer has no room for, would otherwise wait for ever on a daemon that serves somebody else.
bool Session::connectToDaemon() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    m_options.socketPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
    m_socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_socket >= 0 &&
        connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
        return true;
    }
    const int reason = errno;
    const char* advice = reason == EAGAIN ? "other clients wait there already; the daemon serves "
                                            "one, until it is restarted"
                                          : "is lnkd running?";
    std::fprintf(stderr, "lnkdctl: cannot reach the daemon at %s: %s; %s\n",
                 m_options.socketPath.c_str(), std::strerror(reason), advice);
    return false;
}

Session::Input Session::readLine(std::string* line) {
    if (m_options.interactive) {
        std::printf("lnkdctl> ");
        std::fflush(stdout);
    }
    for (;;) {
        const size_t end = m_input.find('\n');
        if (end != std::string::npos || (m_inputEnded && !m_input.empty())) {
            *line = m_input.substr(0, end);
            m_input.erase(0, end == std::string::npos ? end : end + 1);
            ++m_lineNumber;
            return Input::kLine;
        }
        if (m_inputEnded) {
            return Input::kEnd;
        }
        m_input.resize(std::min(m_input.size(), kMaxLine + 1));

        // Input before connection: when both have ended, all was sent and all is well.
        pollfd events[] = {{STDIN_FILENO, POLLIN, 0}, {m_socket, POLLRDHUP, 0}};
        if (poll(events, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return Input::kError;
        }
        if (events[0].revents == 0) {
            return Input::kDaemonGone;
        }
        char bytes[4096];
        const ssize_t count = read(STDIN_FILENO, bytes, sizeof(bytes));
        if (count > 0) {
            m_input.append(bytes, static_cast<size_t>(count));
        } else if (count == 0) {
            m_inputEnded = true;
        } else if (errno != EINTR && errno != EAGAIN) {
            return Input::kError;
        }
    }
}

// Returns false when the daemon is gone, with the reason in m_failure; so do the two below.
bool Session::perform(const Command& command) {
    switch (command.action) {
        case Action::kNone:
            return true;
        case Action::kSend:
            if (!pauseUntil(m_nextSend) || !sendMessage(messageOf(command))) {
                return false;
            }
            m_nextSend = Clock::now() + milliseconds(m_options.periodMs);
            if (m_options.interactive) {
                std::printf("sent: %s \"%s\"\n", command.name.c_str(), command.text.c_str());
            }
            return true;
        case Action::kWait:
            return pauseUntil(Clock::now() + milliseconds(command.waitMs));
        case Action::kHelp:
            std::printf("%s", commandHelp().c_str());
            std::fflush(stdout);
            return true;
        case Action::kQuit:
            m_quit = true;
            return true;
    }
    return true;
}

bool Session::sendMessage(const msg_t& message) {
    const char* bytes = reinterpret_cast<const char*>(&message);
    size_t sent = 0;
    const Clock::time_point limit = Clock::now() + kNotTakenLimit;
    while (sent < sizeof(message)) {
        const ssize_t count = send(m_socket, bytes + sent, sizeof(message) - sent, MSG_NOSIGNAL);
        if (count >= 0) {
            sent += static_cast<size_t>(count);
        } else if (errno == EAGAIN) {
            // The kernel reports such a socket writable only once most of its buffer is empty,
            // minutes at one record a second, so try again by the clock.
            if (Clock::now() >= limit) {
                m_failure = "the daemon takes nothing; is another client connected?";
                return false;
            }
            if (!pauseUntil(Clock::now() + kFullBufferRetry)) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool Session::pauseUntil(Clock::time_point end) {
    for (Clock::time_point now = Clock::now(); now < end; now = Clock::now()) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - now) + milliseconds(1);
        pollfd event = {m_socket, POLLRDHUP, 0};
        if (poll(&event, 1, static_cast<int>(left.count())) > 0) {
            return false;
        }
    }
    return true;
}

void Session::reportLine(const std::string& what) const {
    std::fprintf(stderr, "lnkdctl: line %lu: %s\n", m_lineNumber, what.c_str());
}

}  // namespace lnkd
