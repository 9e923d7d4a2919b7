// SPDX-License-Identifier: Apache-2.0
#include "state/program.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

#include "core/child_process.h"

namespace lnkd {

using android::base::unique_fd;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr milliseconds kTimeToDie(1000);  // after SIGKILL
constexpr std::chrono::microseconds kNap(200);

// One of the two streams of a program, and where what it carries goes.
struct Stream {
    unique_fd from;
    std::string* into;
};

// A program that runs, or could not be started: then its result says why.
struct Running {
    ProgramResult result;
    pid_t pid = -1;
    unique_fd output;
    unique_fd errors;
    bool isOpen = false;  // its output, when the time was over
};

bool makePipe(unique_fd& readEnd, unique_fd& writeEnd) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
    return true;
}

Running start(const std::vector<std::string>& words) {
    Running running;
    unique_fd output;
    unique_fd errors;
    if (makePipe(running.output, output) && makePipe(running.errors, errors)) {
        running.pid = startChild(words, {kNoInput, output.get(), errors.get()}, ChildGroup::kOwn);
    }
    if (running.pid < 0) {
        running.result.problem = words[0] + ": " + strerror(errno);
        running.output.reset();
        running.errors.reset();
    }
    return running;
}

// Takes what a stream has to give now; closes it at its end.
void take(Stream& stream, size_t limit, bool* isCut) {
    char block[16384];
    const ssize_t n = read(stream.from.get(), block, sizeof(block));
    if (n <= 0) {
        if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
            stream.from.reset();
        }
        return;
    }
    const size_t room = limit - stream.into->size();
    *isCut = *isCut || static_cast<size_t>(n) > room;
    stream.into->append(block, std::min(static_cast<size_t>(n), room));
}

int millisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::max<milliseconds::rep>(left.count(), 0));
}

// Reads all streams until each has ended or the time is over.
void takeAll(std::vector<Running>& programs, size_t limit, Clock::time_point deadline) {
    std::vector<Stream> streams;
    std::vector<bool*> isCut;
    for (Running& running : programs) {
        streams.push_back({std::move(running.output), &running.result.output});
        streams.push_back({std::move(running.errors), &running.result.errors});
        isCut.insert(isCut.end(), 2, &running.result.isCut);
    }
    std::vector<pollfd> polled(streams.size());
    for (;;) {
        bool anyOpen = false;
        for (size_t i = 0; i < streams.size(); ++i) {
            polled[i] = {streams[i].from.get(), POLLIN, 0};  // poll passes over -1
            anyOpen = anyOpen || streams[i].from.ok();
        }
        const int left = millisecondsUntil(deadline);
        if (!anyOpen || left == 0) {
            break;
        }
        if (poll(polled.data(), static_cast<nfds_t>(polled.size()), left) < 0 && errno != EINTR) {
            break;
        }
        for (size_t i = 0; i < streams.size(); ++i) {
            if (polled[i].revents != 0) {
                take(streams[i], limit, isCut[i]);
            }
        }
    }
    for (size_t i = 0; i < programs.size(); ++i) {
        programs[i].isOpen = streams[2 * i].from.ok() || streams[2 * i + 1].from.ok();
    }
}

// Whether it is reaped, which sets its status; a program that somebody else reaped has none.
bool isReaped(Running& running) {
    int status = 0;
    const pid_t ended = waitpid(running.pid, &status, WNOHANG);
    if (ended == running.pid) {
        running.result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return true;
    }
    return ended < 0 && errno == ECHILD;
}

void finish(Running& running, const std::string& name, Clock::time_point deadline) {
    if (running.pid <= 0) {
        return;
    }
    // With its output still open, its group is killed before it is reaped: it may have ended and
    // left others behind, and until it is reaped nobody else can get the number of its group.
    bool reaped = !running.isOpen && isReaped(running);
    while (!reaped && Clock::now() < deadline) {
        std::this_thread::sleep_for(kNap);
        reaped = isReaped(running);
    }
    if (reaped) {
        return;
    }
    kill(-running.pid, SIGKILL);
    const Clock::time_point dead = Clock::now() + kTimeToDie;
    while (!isReaped(running) && Clock::now() < dead) {
        std::this_thread::sleep_for(kNap);
    }
    running.result.status = -1;
    running.result.problem = name + ": did not end in time, killed";
}

}  // namespace

std::string ProgramResult::complaint() const {
    if (!problem.empty() || succeeded()) {
        return problem;
    }
    if (isCut) {
        return "printed more than can be read";
    }
    const std::string firstLine = errors.substr(0, errors.find('\n'));
    return firstLine.empty() ? "exit status " + std::to_string(status) : firstLine;
}

std::vector<ProgramResult> runPrograms(const std::vector<std::vector<std::string>>& commands,
                                       const ProgramLimits& limits) {
    const Clock::time_point deadline = Clock::now() + limits.time;
    std::vector<Running> programs;
    programs.reserve(commands.size());
    for (const std::vector<std::string>& words : commands) {
        programs.push_back(start(words));
    }
    takeAll(programs, limits.outputSize, deadline);
    std::vector<ProgramResult> results;
    for (size_t i = 0; i < programs.size(); ++i) {
        finish(programs[i], commands[i][0], deadline);
        results.push_back(std::move(programs[i].result));
    }
    return results;
}

ProgramResult runProgram(const std::vector<std::string>& words, const ProgramLimits& limits) {
    return runPrograms({words}, limits).front();
}

}  // namespace lnkd
