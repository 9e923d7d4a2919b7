// SPDX-License-Identifier: Apache-2.0
#include "explain/program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <utility>

#include "core/child_process.h"

namespace lnkd {

Program::~Program() {
    if (m_pipe >= 0) {
        close(m_pipe);
    }
    if (m_pid > 0) {
        kill(m_pid, SIGTERM);
        finish();
    }
}

bool Program::start(const std::vector<std::string>& words, Pipe pipe) {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        m_error = strerror(errno);
        return false;
    }
    const bool isOutput = pipe == Pipe::kItsOutput;
    ChildStreams streams;
    (isOutput ? streams.output : streams.input) = ends[isOutput ? 1 : 0];
    m_pid = startChild(words, streams, ChildGroup::kOurs);
    if (m_pid < 0) {
        m_error = strerror(errno);
    }
    close(ends[isOutput ? 1 : 0]);
    m_pipe = ends[isOutput ? 0 : 1];
    return m_pid > 0;
}

int Program::takePipe() {
    return std::exchange(m_pipe, -1);
}

bool Program::finish() {
    int status = 0;
    while (waitpid(m_pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    m_pid = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string besideProgram(const std::string& name) {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path) - 1);
    const std::string own(path, length > 0 ? static_cast<size_t>(length) : 0);
    return own.substr(0, own.rfind('/') + 1) + name;
}

}  // namespace lnkd
