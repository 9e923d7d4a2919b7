// SPDX-License-Identifier: Apache-2.0
#include "logfile/log_tail.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>

namespace lnkd {

Reading<std::string> readTail(const std::string& path, size_t size) {
    const android::base::unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat file {};
    if (!fd.ok() || fstat(fd.get(), &file) != 0) {
        return {{}, problemWith(path)};
    }
    if (!S_ISREG(file.st_mode)) {
        return {{}, path + ": not a file"};
    }
    std::string tail(size, '\0');
    const auto length = static_cast<off_t>(size);
    const off_t from = std::max<off_t>(file.st_size - length, 0);
    const ssize_t n = pread(fd.get(), tail.data(), tail.size(), from);
    if (n < 0) {
        return {{}, problemWith(path)};
    }
    tail.resize(static_cast<size_t>(n));
    const size_t begin = from == 0 ? 0 : tail.find('\n') + 1;  // 0 when there is no line end
    const size_t end = tail.rfind('\n') + 1;
    return {tail.substr(begin, end - std::min(begin, end)), ""};
}

}  // namespace lnkd
