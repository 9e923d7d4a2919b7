// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace lnkd {

// What the standard streams of a child are to be: an open descriptor, or one of these two.
constexpr int kSameStream = -1;  // as ours
constexpr int kNoInput = -2;     // nothing to read

struct ChildStreams {
    int input = kNoInput;
    int output = kSameStream;
    int errors = kSameStream;
};

// A process group of its own keeps a child from what a terminal sends to ours, and lets it be ended
// with all that it started.
enum class ChildGroup { kOurs, kOwn };

// Starts a program with the default signal dispositions and no signal blocked, whatever ours are.
// It has those of our descriptors that are not close-on-exec. `path` is looked up in PATH when it
// has no slash; `arguments` ends with a null pointer. Returns its process id, or -1 with errno.
pid_t startChild(const char* path, const char* const* arguments, const ChildStreams& streams,
                 ChildGroup group);
// The same for words, the first of which is the path.
pid_t startChild(const std::vector<std::string>& words, const ChildStreams& streams,
                 ChildGroup group);

}  // namespace lnkd
