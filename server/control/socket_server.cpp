// SPDX-License-Identifier: Apache-2.0
#include "control/socket_server.h"

#include <android-base/unique_fd.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "control/interface_commands.h"
#include "core/parameters.h"

#define LNKD_LOG_TAG "DVX-Lnkd-LnkdSocket-Server"
#include "core/log.h"

namespace lnkd {

using android::base::unique_fd;

namespace {

constexpr int kBacklog = 2;
constexpr mode_t kSocketMode = 0666;

// Descriptor of the listening socket, -1 when there is none. Whoever exchanges it for -1 closes
// it, so it is closed once.
std::atomic<int> listeningFd{-1};

void closeListeningSocket() {
    const int fd = listeningFd.exchange(-1, std::memory_order_acq_rel);
    if (fd >= 1) {
        shutdown(fd, SHUT_RDWR);  // wakes a thread that waits in accept
        close(fd);
    }
}

// Makes what arrived safe to read as a text. The cut is reported: the last word of a text that
// was longer than its field is not what the sender meant.
void terminateText(msg_t& msg) {
    if (memchr(msg.message, '\0', sizeof(msg.message)) == nullptr) {
        msg.message[sizeof(msg.message) - 1] = '\0';
        LNKD_LOGE("message %d has no end of text, cut to %zu characters", msg.id,
                  sizeof(msg.message) - 1);
    }
}

// Serves one connection for ever. A receive that brings less than a whole message leaves the rest
// of the previous one in place; after the peer's close it returns at once, each time.
[[noreturn]] void serve(int connection, std::chrono::milliseconds period) {
    msg_t buffer{};
    for (;;) {
        const ssize_t received = recv(connection, &buffer, sizeof(buffer), 0);
        if (received >= 1 && buffer.length < static_cast<int32_t>(kMessageTextSize)) {
            msg_t msg = buffer;
            terminateText(msg);
            LNKD_LOGI("recv msg: msg.id=%d, msg.length=%d, msg.message=[%s]\n", msg.id, msg.length,
                      msg.message);
            handleMessage(msg);
        }
        std::this_thread::sleep_for(period);
    }
}

}  // namespace

long createSocketThreads(Parameters* parameters) {
    // Before the thread: a client may be connecting already, and its first message counts.
    setCommandParameters(parameters);
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, socketThreadHandle, nullptr);
    if (error != 0) {
        LNKD_LOGE("create thread fail, error=%s", strerror(error));
        setCommandParameters(nullptr);
        return -1;
    }
    pthread_detach(thread);
    const auto id = static_cast<unsigned long>(thread);
    LNKD_LOGI("create handle thread(thread id=%lu) for handle msg\n", id);
    return static_cast<long>(id);
}

int createSocket(const char* path) {
    if (path == nullptr) {
        LNKD_LOGE("NULL params\n");
        return -1;
    }
    unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.ok()) {
        LNKD_LOGE("Failed to open socket '%s', error=%s\n", path, strerror(errno));
        return -1;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    if (unlink(address.sun_path) != 0 && errno != ENOENT) {
        LNKD_LOGE("Failed to unlink old socket '%s', error=%s\n", path, strerror(errno));
        return -1;
    }
    if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        LNKD_LOGE("Failed to bind socket '%s', error=%s\n", path, strerror(errno));
        unlink(address.sun_path);
        return -1;
    }
    if (chmod(address.sun_path, kSocketMode) != 0) {
        LNKD_LOGE("Failed to open socket '%s' to all, error=%s\n", path, strerror(errno));
    }
    LNKD_LOGI("Created socket success with '%s', sockfd=%d\n", path, fd.get());
    return fd.release();
}

void* socketThreadHandle(void* /*unused*/) {
    const int fd = createSocket(kControlSocketPath);
    if (fd < 0) {
        LNKD_LOGE("create socket failed\n");
        return nullptr;
    }
    // From here on a teardown may close it at any moment: nothing but accept follows.
    listen(fd, kBacklog);
    listeningFd.store(fd, std::memory_order_release);
    const std::chrono::milliseconds period(
            std::max<int32_t>(Parameters::instance()->ping_interval_ms, 1));
    const unique_fd connection(accept4(fd, nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection.ok()) {
        LNKD_LOGE("accept fail, error=%s\n", strerror(errno));
        closeListeningSocket();
        return nullptr;
    }
    serve(connection.get(), period);
}

void stopSocketThreads() {
    closeListeningSocket();
}

}  // namespace lnkd
