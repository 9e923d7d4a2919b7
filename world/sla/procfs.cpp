// SPDX-License-Identifier: Apache-2.0
//
// The phone's /proc. Procfs takes no new directories, and the phone has one,
// /proc/sla. So the real procfs is mounted aside and /proc is a file system of
// symlinks into it, with the one name more. Any name at all is such a symlink,
// true for ever, so the kernel may cache it: a process that does not exist is
// just a link to nothing, exactly like the missing entry.
#include <dirent.h>
#include <fuse.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <string>

namespace {

constexpr char kRealProc[] = "/run/world/proc";
constexpr char kStatistics[] = "/run/world/sla";
constexpr double kForever = 1e6;  // s

std::string target(const std::string& path) {
    return path == "/sla" ? kStatistics : kRealProc + path;
}

void* start(fuse_conn_info* connection, fuse_config* config) {
    connection->want |= connection->capable & FUSE_CAP_CACHE_SYMLINKS;
    config->entry_timeout = kForever;
    config->attr_timeout = kForever;
    return nullptr;
}

int getAttributes(const char* path, struct stat* status, fuse_file_info* /*file*/) {
    const std::string name(path);
    *status = {};
    if (name == "/") {
        status->st_mode = S_IFDIR | 0555;
        status->st_nlink = 2;
        return 0;
    }
    if (name.find('/', 1) != std::string::npos)
        return -ENOENT;
    status->st_mode = S_IFLNK | 0777;
    status->st_nlink = 1;
    status->st_size = static_cast<off_t>(target(name).size());
    return 0;
}

int readLink(const char* path, char* buffer, size_t size) {
    if (size == 0)
        return -EINVAL;
    buffer[target(path).copy(buffer, size - 1)] = '\0';
    return 0;
}

int readDirectory(const char* /*path*/, void* buffer, fuse_fill_dir_t fill, off_t /*offset*/,
                  fuse_file_info* /*file*/, fuse_readdir_flags /*flags*/) {
    const std::unique_ptr<DIR, int (*)(DIR*)> real(opendir(kRealProc), closedir);
    if (real == nullptr)
        return -errno;
    fill(buffer, "sla", nullptr, 0, fuse_fill_dir_flags{});
    while (const dirent* entry = readdir(real.get())) {
        fill(buffer, entry->d_name, nullptr, 0, fuse_fill_dir_flags{});
    }
    return 0;
}

}  // namespace

// Returns, with the service left in the background, once /proc is in place.
int main() {
    fuse_operations operations{};
    operations.init = start;
    operations.getattr = getAttributes;
    operations.readlink = readLink;
    operations.readdir = readDirectory;
    std::string arguments[] = {"slaprocfs", "-s", "-o", "allow_other,fsname=slaproc", "/proc"};
    char* argv[5];
    for (int i = 0; i < 5; ++i)
        argv[i] = arguments[i].data();
    return fuse_main(5, argv, &operations, nullptr);
}
