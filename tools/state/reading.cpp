// SPDX-License-Identifier: Apache-2.0
#include "state/reading.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace lnkd {

std::string problemWith(const std::string& thing) {
    return thing + ": " + strerror(errno);
}

Reading<std::string> readFile(const std::string& path, size_t limit) {
    Reading<std::string> file;
    const android::base::unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.ok()) {
        return Reading<std::string>::failed(problemWith(path));
    }
    char block[4096];
    ssize_t n = 0;
    while ((n = read(fd.get(), block, sizeof(block))) > 0) {
        file.value.append(block, static_cast<size_t>(n));
        if (file.value.size() > limit) {
            return Reading<std::string>::failed(path + ": longer than " + std::to_string(limit) +
                                                " bytes");
        }
    }
    return n < 0 ? Reading<std::string>::failed(problemWith(path)) : file;
}

}  // namespace lnkd
