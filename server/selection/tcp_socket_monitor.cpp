// SPDX-License-Identifier: Apache-2.0
#include "selection/tcp_socket_monitor.h"

#include <arpa/inet.h>

#include <cstring>

#include "core/parameters.h"
#include "core/text_values.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SocketMonitor"
#include "core/log.h"

namespace lnkd {

using android::net::SockDiag;
using android::net::tcp_info_ext;

namespace {

Mutex instanceMutex;
SlaTcpSocketMonitor* theInstance GUARDED_BY(instanceMutex) = nullptr;

// linux/tcp.h: offsets in struct tcp_info.
constexpr size_t kLastAckRecv = 56;  // ms
constexpr size_t kRtt = 68;          // us
constexpr size_t kSegsOut = 136;
constexpr size_t kSegsIn = 140;
constexpr size_t kOooPackets = 224;

// A field counts only when the block holds it and one byte more: kernels of different age give
// blocks of different length. 0 otherwise.
uint32_t tcpInfoField(const tcp_info_ext& info, size_t offset) {
    uint32_t value = 0;
    if (offset + sizeof(value) < info.length) {
        memcpy(&value, info.bytes + offset, sizeof(value));
    }
    return value;
}

bool isWebPort(uint16_t port) {
    return port == 80 || port == 443;
}

// Probes are IPv4 and bound to a link, so an end on this machine or on IPv6 would fail them all
// and make every link look the same.
bool canBeProbed(const inet_diag_msg& msg) {
    return msg.idiag_family == AF_INET && !SockDiag::isLoopbackSocket(&msg);
}

// The first of the gaming UIDs, if it is that of an application: UID 0's sockets are the system's.
std::optional<uint32_t> watchedUid() {
    const std::vector<std::string> uids = Parameters::instance()->gamingUidList();
    const std::optional<uint32_t> first = uids.empty() ? std::nullopt : parseUid(uids.front());
    return first == 0U ? std::nullopt : first;
}

}  // namespace

SlaTcpSocketMonitor* SlaTcpSocketMonitor::instance() {
    const MutexLock lock(instanceMutex);
    if (theInstance == nullptr) {
        theInstance = new SlaTcpSocketMonitor;
    }
    return theInstance;
}

void SlaTcpSocketMonitor::finalize() {
    const MutexLock lock(instanceMutex);
    delete theInstance;
    theInstance = nullptr;
}

SlaTcpSocketMonitor::SlaTcpSocketMonitor() : m_uid(watchedUid()) {
    m_pollThread = Thread([this] { run(); });
    if (!m_pollThread.joinable()) {
        LNKD_LOGE("no thread for the socket monitor");
    }
}

SlaTcpSocketMonitor::~SlaTcpSocketMonitor() {
    {
        const MutexLock lock(m_mutex);
        m_paused = true;
        m_running = false;
    }
    m_cond.notify_all();
    m_pollThread.join();
}

void SlaTcpSocketMonitor::run() {
    while (isRunning()) {
        poll();
        selectServer();
        waitForNextPoll();
    }
}

bool SlaTcpSocketMonitor::isRunning() {
    const MutexLock lock(m_mutex);
    return m_running;
}

void SlaTcpSocketMonitor::resumePolling() {
    {
        const MutexLock lock(m_mutex);
        m_paused = false;
    }
    m_cond.notify_all();
}

void SlaTcpSocketMonitor::waitForNextPoll() {
    const MutexLock lock(m_mutex);
    if (m_paused) {
        while (m_paused && m_running) {
            m_cond.wait(m_mutex);
        }
        return;
    }
    const Clock::time_point next = Clock::now() + m_pollInterval;
    while (m_running && m_cond.waitUntil(m_mutex, next)) {
    }
}

void SlaTcpSocketMonitor::poll() {
    const MutexLock lock(m_mutex);
    if (m_paused) {
        return;
    }
    SockDiag diag;
    if (!diag.open()) {
        LNKD_LOGE("Error opening sock diag for polling TCP socket info");
        return;
    }
    const Clock::time_point now = Clock::now();
    // The analysis does not see that m_mutex is held in a function that is called while it is.
    const auto visitor = [&](const inet_diag_msg* msg, const tcp_info_ext& info)
                                 NO_THREAD_SAFETY_ANALYSIS {
                                     if (msg != nullptr && info.length != 0) {
                                         updateSocketStats(now, msg, info);
                                     }
                                 };
    const int result = diag.getLiveTcpInfos(visitor);
    if (result != 0) {
        LNKD_LOGE("Failed to poll TCP socket info: %s", strerror(-result));
        return;
    }
    for (auto entry = m_sockets.begin(); entry != m_sockets.end();) {
        entry = entry->second.lastSeen < now ? m_sockets.erase(entry) : std::next(entry);
    }
    m_lastPollTime = now;
}

void SlaTcpSocketMonitor::updateSocketStats(Clock::time_point now, const inet_diag_msg* msg,
                                            const tcp_info_ext& info) {
    if (msg->idiag_uid != m_uid || !canBeProbed(*msg)) {
        return;
    }
    SlsSocket seen{};
    if (inet_ntop(msg->idiag_family, msg->id.idiag_dst, seen.server, sizeof(seen.server)) ==
        nullptr) {
        return;
    }
    const uint16_t port = ntohs(msg->id.idiag_dport);
    if (isWebPort(port)) {
        return;
    }
    seen.sentCount = tcpInfoField(info, kSegsOut);
    seen.recvCount = tcpInfoField(info, kSegsIn);
    seen.port = port;
    seen.uid = msg->idiag_uid;
    seen.rttUs = tcpInfoField(info, kRtt);
    seen.oooPackets = tcpInfoField(info, kOooPackets);
    seen.lastAckRecvMs = tcpInfoField(info, kLastAckRecv);
    seen.lastSeen = now;
    m_sockets[port] = seen;
    LNKD_LOGI("map server is %s , port is %d,total sent_cnt %d", seen.server,
              static_cast<int>(seen.port), static_cast<int>(seen.sentCount));
}

void SlaTcpSocketMonitor::selectServer() {
    const MutexLock lock(m_mutex);
    const SlsSocket* best = nullptr;
    for (const auto& [port, socket] : m_sockets) {
        if (best == nullptr || socket.sentCount > best->sentCount) {
            best = &socket;
        }
    }
    Parameters* const parameters = Parameters::instance();
    if (best != nullptr && parameters->probeTarget().server != best->server) {
        parameters->setProbeTarget({best->server, best->port});
    }
}

}  // namespace lnkd
