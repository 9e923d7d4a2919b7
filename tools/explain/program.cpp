// SPDX-License-Identifier: Apache-2.0
#include "explain/program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <utility>

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
    std::vector<std::string> copies = words;
    std::vector<char*> argv;
    argv.reserve(copies.size() + 1);
    for (std::string& word : copies) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const bool isOutput = pipe == Pipe::kItsOutput;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[isOutput ? 1 : 0],
                                     isOutput ? STDOUT_FILENO : STDIN_FILENO);
    const int error = posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[isOutput ? 1 : 0]);
    m_pipe = ends[isOutput ? 0 : 1];
    if (error != 0) {
        m_pid = -1;
        m_error = strerror(error);
    }
    return error == 0;
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
