// SPDX-License-Identifier: Apache-2.0
#include "state/statistics.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "aggregation/sla_stats_data.h"

namespace lnkd {

namespace {

constexpr int64_t kWindowMs = 1000;

bool isProcfs(int fd) {
    struct statfs filesystem {};
    return fstatfs(fd, &filesystem) == 0 && filesystem.f_type == PROC_SUPER_MAGIC;
}

// A driver's file may be there to be mapped only. Its mapping is as long as the format; elsewhere
// the file could end before, and touching the rest would end this process: there it is read.
std::string copyOf(int fd) {
    std::string bytes(kStatsFileSize, '\0');
    if (isProcfs(fd)) {
        void* const mapping = mmap(nullptr, kStatsFileSize, PROT_READ, MAP_SHARED, fd, 0);
        if (mapping == MAP_FAILED) {
            return {};
        }
        memcpy(bytes.data(), mapping, kStatsFileSize);
        munmap(mapping, kStatsFileSize);
        return bytes;
    }
    const ssize_t n = pread(fd, bytes.data(), bytes.size(), 0);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(n, 0)));
    return bytes;
}

StatsRecord recordAt(std::string_view file, uint32_t slot) {
    StatsRecord record;
    memcpy(&record, file.data() + sizeof(StatsHeader) + slot * sizeof(record), sizeof(record));
    return record;
}

}  // namespace

std::string statisticsPath(const std::string& link) {
    return "/proc/sla/" + link + "_mmap";
}

Reading<LinkStatistics> readStatistics(const std::string& link) {
    const std::string path = statisticsPath(link);
    const android::base::unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.ok()) {
        return {{}, problemWith(path)};
    }
    errno = 0;
    const std::string bytes = copyOf(fd.get());
    if (bytes.empty() && errno != 0) {
        return {{}, problemWith(path)};
    }
    if (bytes.size() < kStatsFileSize) {
        return {{}, path + ": shorter than its format"};
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return {measureStatistics(bytes,
                              std::chrono::duration_cast<std::chrono::milliseconds>(now).count()),
            ""};
}

LinkStatistics measureStatistics(std::string_view file, int64_t nowMs) {
    LinkStatistics result;
    StatsHeader header;
    memcpy(&header, file.data(), sizeof(header));
    result.isInitialised = header.magic == kStatsMagic;
    if (!result.isInitialised || header.writeIndex >= kStatsRecords) {
        return result;
    }
    uint64_t bytes = 0;
    int64_t covered = kWindowMs;
    for (uint32_t age = 1; age <= kStatsRecords; ++age) {
        const StatsRecord record =
                recordAt(file, (header.writeIndex + kStatsRecords - age) % kStatsRecords);
        if (record.timestamp == 0) {
            break;
        }
        const int64_t recordAge =
                nowMs - static_cast<int64_t>(std::min<uint64_t>(record.timestamp, INT64_MAX));
        if (!result.newestAgeMs.has_value()) {
            result.newestAgeMs = recordAge;
        }
        if (recordAge > kWindowMs) {
            break;
        }
        bytes += record.type == kIntermediateRecord ? 0 : record.bytes;
        if (age == kStatsRecords) {  // a fast link: the ring holds less than the window
            covered = std::max<int64_t>(recordAge, 1);
        }
    }
    result.bitsPerSecond = static_cast<double>(bytes) * 8000 / static_cast<double>(covered);
    return result;
}

}  // namespace lnkd
