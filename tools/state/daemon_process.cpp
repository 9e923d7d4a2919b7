// SPDX-License-Identifier: Apache-2.0
#include "state/daemon_process.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <string_view>
#include <vector>

#include "state/processes.h"

namespace lnkd {

namespace {

constexpr char kLockFolder[] = "/dev/socket";
constexpr char kLockFile[] = "/dev/socket/lnkd.lock";
constexpr char kProgramName[] = "lnkd";
constexpr char kCleanName[] = "lnkdctl";  // which holds the lock while it removes rules
constexpr size_t kLargestProcFile = 65536;
constexpr int kStartTimeField = 20;  // proc(5): stat, "starttime", counted from behind "(comm) "

int64_t numberFrom(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    int64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

// proc(5): the value in kB of a line "NAME:   123 kB"; 0 without it.
int64_t kilobytes(const std::string& file, const std::string& name) {
    const size_t at = file.find('\n' + name + ':');
    return at == std::string::npos
                   ? 0
                   : numberFrom(std::string_view(file).substr(at + name.size() + 2));
}

int64_t millisecondsNow(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

int64_t startTime(const std::string& folder) {
    const std::string stat = readFile(folder + "/stat", kLargestProcFile).value;
    size_t at = stat.rfind(')');  // a program's name may hold blanks and brackets
    for (int field = 0; field < kStartTimeField && at != std::string::npos; ++field) {
        at = stat.find(' ', at + 1);
    }
    if (at == std::string::npos) {
        return 0;
    }
    const int64_t ticks = numberFrom(std::string_view(stat).substr(at));
    const int64_t bootedAt = millisecondsNow(CLOCK_REALTIME) - millisecondsNow(CLOCK_BOOTTIME);
    return (bootedAt + ticks * 1000 / sysconf(_SC_CLK_TCK)) / 1000;
}

void findLog(const std::string& folder, DaemonProcess* daemon) {
    const std::string descriptor = folder + "/fd/2";
    struct stat file {};
    char name[4096];
    const ssize_t length = readlink(descriptor.c_str(), name, sizeof(name));
    if (stat(descriptor.c_str(), &file) == 0 && S_ISREG(file.st_mode) && length > 0) {
        daemon->logPath = descriptor;
        daemon->logName.assign(name, static_cast<size_t>(length));
    }
}

DaemonProcess describe(pid_t pid) {
    DaemonProcess daemon;
    daemon.pid = pid;
    const std::string folder = "/proc/" + std::to_string(pid);
    daemon.startedAt = startTime(folder);
    const std::string memory = readFile(folder + "/smaps_rollup", kLargestProcFile).value;
    daemon.residentKb = kilobytes(memory, "Rss");
    daemon.privateKb = kilobytes(memory, "Private_Clean") + kilobytes(memory, "Private_Dirty");
    if (daemon.residentKb == 0) {
        const std::string status = readFile(folder + "/status", kLargestProcFile).value;
        daemon.residentKb = kilobytes(status, "VmRSS");
    }
    findLog(folder, &daemon);
    return daemon;
}

bool hasName(pid_t pid, const char* name) {
    return readFile("/proc/" + std::to_string(pid) + "/comm", kLargestProcFile).value ==
           std::string(name) + '\n';
}

}  // namespace

Reading<std::optional<DaemonProcess>> findDaemon() {
    Reading<std::optional<DaemonProcess>> found;
    const android::base::unique_fd fd(
            open(kLockFile, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.ok()) {
        // No daemon has run since the folder was made; without the folder none can take a lock.
        if (errno != ENOENT || access(kLockFolder, F_OK) != 0) {
            found.problem = problemWith(kLockFile);
        }
        return found;
    }
    struct flock lock {};
    lock.l_type = F_WRLCK;
    if (fcntl(fd.get(), F_GETLK, &lock) != 0) {
        found.problem = problemWith(kLockFile);
    } else if (lock.l_type != F_UNLCK && lock.l_pid <= 0) {
        found.problem = std::string(kLockFile) + ": held by a process that is not seen from here";
    } else if (lock.l_type != F_UNLCK && hasName(lock.l_pid, kCleanName)) {
        found.problem = "\"lnkdctl clean\" is at work (process " + std::to_string(lock.l_pid) + ')';
    } else if (lock.l_type != F_UNLCK) {
        found.value = describe(lock.l_pid);
    }
    return found;
}

pid_t findIdleDaemon() {
    const std::vector<pid_t> processes = readProcesses();
    const auto found = std::find_if(processes.begin(), processes.end(),
                                    [](pid_t pid) { return hasName(pid, kProgramName); });
    return found == processes.end() ? 0 : *found;
}

}  // namespace lnkd
