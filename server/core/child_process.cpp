// SPDX-License-Identifier: Apache-2.0
#include "core/child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace lnkd {

pid_t startChild(const char* path, const char* const* arguments, const ChildStreams& streams,
                 ChildGroup group) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    if (streams.input == kNoInput) {
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    } else if (streams.input != kSameStream) {
        posix_spawn_file_actions_adddup2(&files, streams.input, STDIN_FILENO);
    }
    if (streams.output != kSameStream) {
        posix_spawn_file_actions_adddup2(&files, streams.output, STDOUT_FILENO);
    }
    if (streams.errors != kSameStream) {
        posix_spawn_file_actions_adddup2(&files, streams.errors, STDERR_FILENO);
    }

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    const int ownGroup = group == ChildGroup::kOwn ? POSIX_SPAWN_SETPGROUP : 0;
    posix_spawnattr_setflags(&attributes, static_cast<short>(ownGroup | POSIX_SPAWN_SETSIGDEF |
                                                             POSIX_SPAWN_SETSIGMASK));
    posix_spawnattr_setpgroup(&attributes, 0);
    sigset_t signals;
    sigfillset(&signals);
    sigdelset(&signals, SIGKILL);  // these two have no other, and cannot be set
    sigdelset(&signals, SIGSTOP);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);

    pid_t pid = -1;
    const int error = posix_spawnp(&pid, path, &files, &attributes,
                                   const_cast<char* const*>(arguments), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    errno = error;
    return error == 0 ? pid : -1;
}

pid_t startChild(const std::vector<std::string>& words, const ChildStreams& streams,
                 ChildGroup group) {
    std::vector<const char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    arguments.push_back(nullptr);
    return startChild(arguments[0], arguments.data(), streams, group);
}

}  // namespace lnkd
