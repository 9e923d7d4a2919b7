// SPDX-License-Identifier: Apache-2.0
#include "explain/page.h"

#include <unistd.h>

#include <cerrno>

#include "explain/program.h"
#include "explain/story_json.h"

namespace lnkd {

namespace {

constexpr char kPython[] = "/usr/bin/python3";

// The folder stands beside this program's in an installation, and in it where it was built.
std::string drawingProgram() {
    for (const char* const path : {"report/explain.py", "../report/explain.py"}) {
        std::string found = besideProgram(path);
        if (access(found.c_str(), R_OK) == 0) {
            return found;
        }
    }
    return "";
}

bool writeAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno != EINTR) {
            return false;
        }
        done += n > 0 ? static_cast<size_t>(n) : 0;
    }
    return true;
}

}  // namespace

bool writePage(const Story& story, const std::string& name, const std::string& path,
               std::string* error) {
    const std::string script = drawingProgram();
    if (script.empty()) {
        *error = "report/explain.py, which draws it, is not beside this program";
        return false;
    }
    Program program;
    if (!program.start({kPython, script, path}, Program::Pipe::kItsInput)) {
        *error = std::string(kPython) + ", which draws it: " + program.error();
        return false;
    }
    const int fd = program.takePipe();
    const bool isWritten = writeAll(fd, jsonOf(story, name, true));
    close(fd);
    if (!program.finish() || !isWritten) {
        *error = "it could not be drawn or written";
        return false;
    }
    return true;
}

}  // namespace lnkd
