// SPDX-License-Identifier: Apache-2.0
#include "selection/tcp_probe.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#define LNKD_LOG_TAG "DVX-Lnkd-Tcping"
#include "core/log.h"

namespace lnkd {

namespace {

constexpr timespec kConnectTimeout{0, 500000000};  // a slower link is as bad as none for a game
constexpr timeval kExchangeTimeout{0, 500000};
constexpr int kExchanges = 10;
constexpr size_t kExchangeSize = 60;  // bytes; the text is two shorter
constexpr size_t kTcpInfoSize = 232;  // bytes of the kernel's tcp_info that are asked for
constexpr size_t kTcpInfoRtt = 68;    // linux/tcp.h: offset of tcpi_rtt, in microseconds
constexpr long kNsPerSecond = 1000000000;

timespec monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

// a + b, the nanoseconds carried.
timespec sum(const timespec& a, const timespec& b) {
    timespec result{a.tv_sec + b.tv_sec, a.tv_nsec + b.tv_nsec};
    if (result.tv_nsec >= kNsPerSecond) {
        ++result.tv_sec;
        result.tv_nsec -= kNsPerSecond;
    }
    return result;
}

// What is left until `deadline`, never below zero.
timespec timeUntil(const timespec& deadline) {
    const timespec now = monotonicNow();
    timespec left{deadline.tv_sec - now.tv_sec, deadline.tv_nsec - now.tv_nsec};
    if (left.tv_nsec < 0) {
        --left.tv_sec;
        left.tv_nsec += kNsPerSecond;
    }
    return left.tv_sec < 0 ? timespec{} : left;
}

bool setTimeout(int fd, int option) {
    return setsockopt(fd, SOL_SOCKET, option, &kExchangeTimeout, sizeof(kExchangeTimeout)) == 0;
}

bool bindToDevice(int fd, const char* name) {
    ifreq device{};
    strncpy(device.ifr_name, name, sizeof(device.ifr_name) - 1);
    ioctl(fd, SIOCGIFINDEX, &device);
    return setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, &device, sizeof(device)) == 0;
}

// The kernel's smoothed round-trip time of the connection, in microseconds; false when it does
// not tell.
bool readRttUs(int fd, uint32_t& rttUs) {
    char info[kTcpInfoSize] = {};
    socklen_t length = sizeof(info);
    if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, info, &length) != 0 ||
        length < kTcpInfoRtt + sizeof(rttUs)) {
        return false;
    }
    memcpy(&rttUs, info + kTcpInfoRtt, sizeof(rttUs));
    return true;
}

// Makes a probe's socket the live one for the length of a scope, which ends before the socket does.
class LiveProbe {
  public:
    LiveProbe(LiveSocket* place, int fd) : m_place(place), m_allowed(!place || place->enter(fd)) {}
    ~LiveProbe() {
        if (m_place != nullptr) {
            m_place->leave();
        }
    }
    LiveProbe(const LiveProbe&) = delete;
    LiveProbe& operator=(const LiveProbe&) = delete;

    bool allowed() const { return m_allowed; }

  private:
    LiveSocket* const m_place;
    const bool m_allowed;
};

}  // namespace

int Tcping::updateTcpingRtt(sls_tcping_info* info, int penaltyMs) {
    return populateTcpingSocket(info) != 0 ? -1 : getTcpingRtt(info, penaltyMs);
}

int Tcping::populateTcpingSocket(sls_tcping_info* info) {
    info->sockFd.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!info->sockFd.ok()) {
        LNKD_LOGE("create socket failed of client!\n");
        return -1;
    }
    info->serverAddr = {};
    info->serverAddr.sin_family = AF_INET;
    info->serverAddr.sin_port = htons(static_cast<uint16_t>(info->port));
    info->serverAddr.sin_addr.s_addr = inet_addr(info->serverIp);
    setTimeout(info->sockFd.get(), SO_SNDTIMEO);
    if (!setTimeout(info->sockFd.get(), SO_RCVTIMEO)) {
        LNKD_LOGE("Set SocketTimeout failed.");
        info->sockFd.reset();
        return -1;
    }
    if (info->ifaceName != nullptr && !bindToDevice(info->sockFd.get(), info->ifaceName)) {
        LNKD_LOGE("Set interface %s failed.", info->ifaceName);
        info->sockFd.reset();
        return -1;
    }
    return 0;
}

int Tcping::getTcpingRtt(sls_tcping_info* info, int penaltyMs) {
    const android::base::unique_fd fd = std::move(info->sockFd);
    const LiveProbe live(info->liveSocket, fd.get());
    if (!live.allowed()) {
        return -1;
    }
    const auto* const address = reinterpret_cast<const sockaddr*>(&info->serverAddr);
    if (connect_with_timeout(fd.get(), address, sizeof(info->serverAddr), kConnectTimeout) == -1) {
        LNKD_LOGE("connect failed of client,device is %s!\n", info->ifaceName);
        return -1;
    }
    uint32_t rttUs = 0;
    if (exchange(fd.get(), info->ifaceName) == 0 || !readRttUs(fd.get(), rttUs)) {
        return -1;
    }
    info->rtt = static_cast<int32_t>(rttUs / 1000) + penaltyMs;
    LNKD_LOGI("TCPing cacla rtt is %d,device is %s", info->rtt, info->ifaceName);
    return info->rtt;
}

int Tcping::exchange(int fd, const char* ifaceName) {
    int count = 0;
    while (count < kExchanges) {
        char buffer[kExchangeSize] = {};
        genRandomString(sizeof(buffer), buffer);
        if (send(fd, buffer, strlen(buffer), MSG_NOSIGNAL) < 0) {
            LNKD_LOGE(
                    "send data to server request failed %d,device is %s(errno %d, errno count "
                    "%d)\n",
                    -1, ifaceName, errno, count);
            break;
        }
        memset(buffer, 0, sizeof(buffer));
        if (recv(fd, buffer, sizeof(buffer), MSG_WAITALL | MSG_NOSIGNAL) < 0) {
            LNKD_LOGE("recieve failed %d,device is %s(errno %d, errno count %d)", -1, ifaceName,
                      errno, count);
            break;
        }
        ++count;
    }
    return count;
}

int Tcping::connect_with_timeout(int fd, const sockaddr* addr, unsigned addrlen, timespec timeout) {
    const int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    int result = connect(fd, addr, addrlen);
    if (result != 0 && errno == EINPROGRESS) {
        const timespec deadline = sum(monotonicNow(), timeout);
        const int polled = retrying_poll(fd, POLLIN | POLLOUT, &deadline);
        result = polled >= 1 ? polled : -1;
    }
    fcntl(fd, F_SETFL, flags);
    return result;
}

int Tcping::genRandomString(int len, char* out) {
    timeval now{};
    gettimeofday(&now, nullptr);
    srand(static_cast<unsigned int>(now.tv_usec));
    for (int i = 0; i < len - 2; ++i) {
        switch (rand() % 3) {
            case 0:
                out[i] = static_cast<char>('A' + rand() % 26);
                break;
            case 1:
                out[i] = static_cast<char>('a' + rand() % 26);
                break;
            default:
                out[i] = static_cast<char>('0' + rand() % 10);
                break;
        }
    }
    out[len - 1] = '\0';
    return 0;
}

int retrying_poll(int fd, short events, const timespec* deadline) {
    static constexpr char kCaller[] = "retrying_poll";
    for (;;) {
        const timespec left = timeUntil(*deadline);
        pollfd polled{fd, events, 0};
        const int result = ppoll(&polled, 1, &left, nullptr);
        if (result == 0) {
            LNKD_LOGE(" %s : %d retrying_poll timeout", kCaller, fd);
            errno = ETIMEDOUT;
            return 0;
        }
        if (result < 0) {
            if (errno == EINTR) {
                continue;
            }
            LNKD_LOGE(" %s : %d retrying_poll failed", kCaller, fd);
            return result;
        }
        if ((polled.revents & (POLLIN | POLLOUT | POLLERR)) != 0) {
            int error = 0;
            socklen_t length = sizeof(error);
            if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0) {
                LNKD_LOGE(" %s : %d retrying_poll getsockopt failed", kCaller, fd);
                errno = error;
                return -1;
            }
        }
        return result;
    }
}

}  // namespace lnkd
