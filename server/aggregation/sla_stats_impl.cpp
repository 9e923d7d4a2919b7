// SPDX-License-Identifier: Apache-2.0
#include "aggregation/sla_stats_impl.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "aggregation/sla_stats_data.h"
#include "core/parameters.h"
#include "core/stop_request.h"
#include "core/text_values.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SlaStatsImpl"
#include "core/log.h"

namespace lnkd {

using android::base::unique_fd;

namespace {

constexpr char kControlFile[] = "/proc/sla/config";
constexpr char kStatsDirectory[] = "/proc/sla";
constexpr int kMapAttempts = 3;
constexpr std::chrono::milliseconds kMapRetryDelay(500);

Mutex instanceMutex;
SlaStatsImpl* theInstance GUARDED_BY(instanceMutex) = nullptr;

// Touching a mapping past the end of its file kills the process, so a file must be as long as its
// format. Entries of procfs say that they are empty whatever they hold: there the driver's own
// mapping is trusted.
bool holdsStatistics(int fd) {
    struct statfs filesystem {};
    if (fstatfs(fd, &filesystem) == 0 && filesystem.f_type == PROC_SUPER_MAGIC) {
        return true;
    }
    struct stat file {};
    return fstat(fd, &file) == 0 && file.st_size >= static_cast<off_t>(kStatsFileSize);
}

}  // namespace

SlaStatsImpl* SlaStatsImpl::instance() {
    const MutexLock lock(instanceMutex);
    if (theInstance == nullptr) {
        theInstance = new SlaStatsImpl;
    }
    return theInstance;
}

void SlaStatsImpl::finalize() {
    const MutexLock lock(instanceMutex);
    delete theInstance;
    theInstance = nullptr;
}

bool SlaStatsImpl::enableSLA(bool enable) {
    {
        const MutexLock lock(configMutex);
        if (enable) {
            const Parameters* const parameters = Parameters::instance();
            writeStatsConfFile(parameters->getStatsProtocols().c_str());
            writeStatsConfFile(parameters->getStatsPorts().c_str());
            const InterfaceSnapshot table = parameters->interfaces();
            for (const auto& [name, record] : *table) {
                writeStatsConfFile(("iface=" + name).c_str());
            }
            initMmap();
        } else {
            freeMmap();
        }
    }
    return writeEnable(enable) == 0;
}

bool SlaStatsImpl::updateSlaInterfacemap(const char* name, bool add) {
    {
        const MutexLock lock(configMutex);
        freeMmap();
    }
    writeEnable(false);
    enableSLA(true);
    if (add) {
        LNKD_LOGI("m_slaInterfaceMap add %s success！", name);
    } else {
        LNKD_LOGI("m_slaInterfaceMap del %s success！", name);
    }
    return true;
}

int32_t SlaStatsImpl::writeEnable(bool enable) {
    return writeStatsConfFile(enable ? "enable=1" : "enable=0");
}

int32_t SlaStatsImpl::writeStatsConfFile(const char* command) {
    const unique_fd fd(open(kControlFile, O_WRONLY | O_CLOEXEC));
    if (!fd.ok()) {
        LNKD_LOGE("open stats config file failed:%s", strerror(errno));
        return -1;
    }
    const size_t length = strlen(command) + 1;
    const ssize_t written = write(fd.get(), command, length);
    if (written < 0 || static_cast<size_t>(written) < length) {
        LNKD_LOGE("write the config failed:%s\n", strerror(errno));
        return -1;
    }
    return 0;
}

bool SlaStatsImpl::initMmap() {
    const InterfaceSnapshot table = Parameters::instance()->interfaces();
    const MutexLock lock(statsMutex);
    size_t mapped = 0;
    for (const auto& [key, record] : *table) {
        auto link = std::make_unique<linkStatsWrapper_t>();
        snprintf(link->interfaceName, sizeof(link->interfaceName), "%s", record->name);
        const std::string name = link->interfaceName;
        const bool isWlan = !record->metered && !isCellularName(name);
        if (void* const mapping = waitForStatsMmap(name)) {
            link->statsData.reset(new SlaStatsData(mapping, isWlan));
            ++mapped;
        }
        m_slaInterfaceMap[name] = std::move(link);
        LNKD_LOGI("%s + %s\n", "initMmap", name.c_str());
    }
    return mapped == m_slaInterfaceMap.size();
}

void SlaStatsImpl::freeMmap() {
    const MutexLock lock(statsMutex);
    m_slaInterfaceMap.clear();
}

void* SlaStatsImpl::waitForStatsMmap(const std::string& name) {
    for (int attempt = 0; attempt < kMapAttempts; ++attempt) {
        if (void* const mapping = getStatsMmap(name)) {
            return mapping;
        }
        if (sleepUnlessStopped(kMapRetryDelay)) {
            break;
        }
    }
    return nullptr;
}

void* SlaStatsImpl::getStatsMmap(const std::string& name) {
    char path[128];
    snprintf(path, sizeof(path), "%s%s%s_mmap", kStatsDirectory, "/", name.c_str());
    const unique_fd fd(open(path, O_RDONLY | O_CREAT | O_CLOEXEC, 0777));
    if (!fd.ok()) {
        LNKD_LOGE("open mmap file failed:%s", strerror(errno));
        return nullptr;
    }
    if (!holdsStatistics(fd.get())) {
        LNKD_LOGE("%s is shorter than its format", path);
        return nullptr;
    }
    void* const mapping = mmap(nullptr, kStatsFileSize, PROT_READ, MAP_SHARED, fd.get(), 0);
    if (mapping == MAP_FAILED) {
        LNKD_LOGE("map of %s failed:%s", path, strerror(errno));
        return nullptr;
    }
    return mapping;
}

}  // namespace lnkd
