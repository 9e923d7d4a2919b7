// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <utility>

namespace lnkd {

// What was read of the kernel or of a file, or why it could not be. "There is none" is a value,
// "cannot tell" is a problem: who mixes them up reports a state that nobody has seen.
template <typename Value>
struct Reading {
    Value value{};
    std::string problem;  // a line that names the thing; empty when it was read

    // Without what was read until then: a part of a thing is not the thing.
    static Reading failed(std::string problem) { return {{}, std::move(problem)}; }

    bool known() const { return problem.empty(); }
};

// A problem with a thing: its name and what errno says.
std::string problemWith(const std::string& thing);

// The whole content of a file. One longer than `limit` bytes is a problem, as is one that gives
// nothing at once, such as a FIFO without a writer.
Reading<std::string> readFile(const std::string& path, size_t limit);

}  // namespace lnkd
