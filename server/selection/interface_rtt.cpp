// SPDX-License-Identifier: Apache-2.0
#include "selection/interface_rtt.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/parameters.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SlaPing"
#include "core/log.h"

namespace lnkd {

namespace {

constexpr size_t kLongHistory = 10;       // samples
constexpr size_t kShortHistory = 3;       // samples
constexpr int32_t kMissSample = 500;      // ms, what a miss counts as when nothing is known
constexpr int32_t kLevelHysteresis = 20;  // ms
constexpr int32_t kBandStep = 2;          // levels between two bands of one scale

// Bands of 100 ms, the best first. The cellular scale starts its second band 30 ms earlier.
struct Scale {
    int32_t secondBand;  // ms
    int32_t bestLevel;
};
constexpr Scale kWifiScale{120, 11};
constexpr Scale kOtherScale{90, 10};
constexpr int32_t kBands = 5;
constexpr int32_t kBandWidth = 100;  // ms

int32_t levelFor(const Scale& scale, int32_t speed) {
    const int32_t band =
            speed < scale.secondBand
                    ? 0
                    : std::min((speed - scale.secondBand) / kBandWidth + 1, kBands - 1);
    return scale.bestLevel - band * kBandStep;
}

// Sums wrap at 32 bits, the division truncates toward zero.
int32_t averageOf(const std::vector<int32_t>& samples) {
    if (samples.empty()) {
        return 0;
    }
    uint32_t sum = 0;
    for (const int32_t sample : samples) {
        sum += static_cast<uint32_t>(sample);
    }
    return static_cast<int32_t>(sum) / static_cast<int32_t>(samples.size());
}

// `percent` of a speed, the product wrapping at 32 bits.
uint32_t percentOf(int32_t speed, int32_t percent) {
    return static_cast<uint32_t>(speed) * static_cast<uint32_t>(percent) / 100U;
}

int32_t alphaPercent() {
    return std::clamp(Parameters::instance()->alpha_percent, 0, 100);
}

}  // namespace

InterfaceRtt::InterfaceRtt(const char* name, bool pingEnabled)
    : m_minPingTimes(Parameters::instance()->min_ping_times), m_pingEnabled(pingEnabled) {
    snprintf(m_ifaceName, sizeof(m_ifaceName), "%s", name);
}

void InterfaceRtt::setThreadRunning(bool on) {
    {
        const MutexLock lock(m_sleepMutex);
        m_threadRunning.store(on, std::memory_order_relaxed);
    }
    m_sleepCond.notify_all();
    if (!on) {
        m_liveSocket.end();
    }
}

void InterfaceRtt::sleepWhileRunning(int64_t ms) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    const MutexLock lock(m_sleepMutex);
    while (isThreadRunning() && m_sleepCond.waitUntil(m_sleepMutex, end)) {
    }
}

void InterfaceRtt::setSpeed(int32_t rtt) {
    if (m_minPingTimes == 1) {
        m_speed = rtt;
        LNKD_LOGI("SLA_PING Ping RTT interface (%s) num ping rtt = (%d) ", m_ifaceName,
                  static_cast<int>(m_pingMissCount));
        return;
    }
    const auto limit = static_cast<uint32_t>(Parameters::instance()->min_ping_times);
    int32_t sample = rtt;
    if (rtt == -1) {
        if (m_pingMissCount < limit) {
            ++m_pingMissCount;
            LNKD_LOGI("%s: SLA_PING Ping Miss for RTT interface (%s) num ping miss = (%d) ",
                      "setSpeed", m_ifaceName, static_cast<int>(m_pingMissCount));
        }
        sample = m_shortpreviousSpeed.empty() ? kMissSample : m_shortpreviousSpeed.back();
    } else if (m_pingMissCount > 0) {
        --m_pingMissCount;
    }
    if (m_pingMissCount >= limit) {
        m_speed = -1;
        remember(kMissSample);
        LNKD_LOGI(
                "%s: SLA_PING Ping FAIL for RTT interface (%s) (calc = %d)(old speed = %d) "
                "(new prev = %d) (alpha_percent = %d)",
                "setSpeed", m_ifaceName, m_speed, sample, m_longpreviousSpeed.back(),
                alphaPercent());
    } else {
        caclaverageInterfaceSpeed(sample);
    }
    caclInterfaceLevel();
}

void InterfaceRtt::remember(int32_t sample) {
    m_longpreviousSpeed.push_back(sample);
    m_shortpreviousSpeed.push_back(sample);
    if (m_longpreviousSpeed.size() > kLongHistory) {
        m_longpreviousSpeed.erase(m_longpreviousSpeed.begin());
    }
    if (m_shortpreviousSpeed.size() > kShortHistory) {
        m_shortpreviousSpeed.erase(m_shortpreviousSpeed.begin());
    }
}

void InterfaceRtt::caclaverageInterfaceSpeed(int32_t sample) {
    const int32_t alpha = alphaPercent();
    const int32_t longAverage = averageOf(m_longpreviousSpeed);
    const int32_t shortAverage = averageOf(m_shortpreviousSpeed);
    const int32_t longSpeed = longAverage == 0 ? sample : longAverage;
    const int32_t shortSpeed = shortAverage == 0 ? sample : shortAverage;
    m_speed =
            static_cast<int32_t>(percentOf(shortSpeed, 100 - alpha) + percentOf(longSpeed, alpha));
    remember(sample);
    LNKD_LOGI(
            "%s: SLA_PING Ping Pass for RTT interface (%s) (short_average = %d) "
            "(long_average = %d) (cacl = %d) (raw = %d) (longpreviousSpeed size= %d) "
            "(m_shortpreviousSpeed size= %d) (alpha_percent = %d)",
            "caclaverageInterfaceSpeed", m_ifaceName, shortSpeed, longSpeed, m_speed, sample,
            static_cast<int>(m_longpreviousSpeed.size()),
            static_cast<int>(m_shortpreviousSpeed.size()), alpha);
}

void InterfaceRtt::caclInterfaceLevel() {
    if (m_speed == -1) {
        m_networkLevel = kFailed;
        m_levelSpeed = -1;
    } else if (m_speed > 0) {
        const bool isWifi = strncmp(m_ifaceName, "wlan", 4) == 0;
        const int32_t candidate = levelFor(isWifi ? kWifiScale : kOtherScale, m_speed);
        const bool nextBand = std::abs(candidate - m_networkLevel) == kBandStep;
        if (!nextBand || std::abs(m_speed - m_levelSpeed) >= kLevelHysteresis) {
            m_networkLevel = candidate;
            m_levelSpeed = m_speed;
        }
    }
    LNKD_LOGI("%s: SLA_PING cacl Interface Level interface (%s) (network level = %d)",
              "caclInterfaceLevel", m_ifaceName, m_networkLevel);
}

bool InterfaceRtt::isSlave() const {
    const auto record = Parameters::instance()->findInterface(m_ifaceName);
    if (record == nullptr) {
        LNKD_LOGE("%s ifaceInfo is NULL", "isSlave");
        return false;
    }
    return record->slave;
}

}  // namespace lnkd
