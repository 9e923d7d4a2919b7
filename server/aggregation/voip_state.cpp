// SPDX-License-Identifier: Apache-2.0
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "aggregation/sla_stats_impl.h"
#include "core/text_values.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SlaStatsImpl"
#include "core/log.h"

namespace lnkd {

using android::base::unique_fd;

namespace {

constexpr char kVoipStateFile[] = "/proc/sla/sla_voip_state";
constexpr size_t kVoipStateSize = 21;  // bytes: ten digits, a comma, five digits, and some more
constexpr ssize_t kShortestState = 4;  // bytes

void copyDigits(char* out, size_t size, const char* text, size_t length) {
    memcpy(out, text, std::min(length, size - 1));
}

}  // namespace

int32_t SlaStatsImpl::enableSlaVoipState(bool enable, const char* uid) {
    const bool isUid = parseUid(uid).has_value();
    if (enable && !isUid) {
        LNKD_LOGE("%s not a UID: %s", "enableSlaVoipState", uid);
        return -1;
    }
    const std::string announce = std::string("voip_uid=") + (isUid ? uid : "0");
    // The module must know the UID before it tracks, and stop before it is told another.
    if (enable) {
        writeStatsConfFile(announce.c_str());
        return writeStatsConfFile("voip_enable=1");
    }
    writeStatsConfFile("voip_enable=0");
    return writeStatsConfFile(announce.c_str());
}

int32_t SlaStatsImpl::getSlaVoipState(char* address, char* port) {
    const unique_fd fd(open(kVoipStateFile, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) {
        LNKD_LOGE("open voip state file failed:%s", strerror(errno));
        return -1;
    }
    char content[kVoipStateSize] = {};
    const ssize_t n = read(fd.get(), content, sizeof(content));
    if (n >= kShortestState) {
        const auto length = static_cast<size_t>(n);
        if (const auto* comma = static_cast<const char*>(memchr(content, ',', length))) {
            const auto digits = static_cast<size_t>(comma - content);
            copyDigits(address, kVoipAddressSize, content, digits);
            copyDigits(port, kVoipPortSize, comma + 1, length - digits - 1);
        }
    }
    return static_cast<int32_t>(n);
}

}  // namespace lnkd
