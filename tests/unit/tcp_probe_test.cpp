// SPDX-License-Identifier: Apache-2.0
#include "selection/tcp_probe.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

namespace lnkd {
namespace {

using android::base::unique_fd;

size_t openDescriptors() {
    const auto all = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

// A network of the test's own: nothing but loopback.
class Probe : public testing::Test {
  protected:
    void SetUp() override {
        if (unshare(CLONE_NEWNET) != 0)
            GTEST_SKIP() << "only root can build a private network";
        const unique_fd fd(socket(AF_INET, SOCK_DGRAM, 0));
        ifreq up{};
        strcpy(up.ifr_name, "lo");
        up.ifr_flags = IFF_UP;
        ASSERT_EQ(ioctl(fd.get(), SIOCSIFFLAGS, &up), 0);
    }

    // Probes 127.0.0.1:7 while `serve` has the first connection; no server when it is empty.
    int probe(const std::function<void(int)>& serve, const char* device = "lo",
              const char* server = "127.0.0.1") {
        const unique_fd listening(socket(AF_INET, SOCK_STREAM, 0));
        const int on = 1;
        setsockopt(listening.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(7);
        std::thread thread;
        if (serve) {
            EXPECT_EQ(bind(listening.get(), reinterpret_cast<sockaddr*>(&address), 16), 0);
            EXPECT_EQ(listen(listening.get(), 4), 0);
            thread = std::thread([&] {
                const unique_fd connection(accept(listening.get(), nullptr, nullptr));
                if (connection.ok())
                    serve(connection.get());
            });
        }
        const size_t before = openDescriptors();
        sls_tcping_info info{};
        info.ifaceName = device;
        info.serverIp = server;
        info.port = 7;
        const auto start = std::chrono::steady_clock::now();
        const int rtt = Tcping().updateTcpingRtt(&info, 60);
        took = std::chrono::steady_clock::now() - start;
        shutdown(listening.get(), SHUT_RDWR);
        if (thread.joinable())
            thread.join();
        EXPECT_LE(openDescriptors(), before) << "a descriptor was left";
        return rtt;
    }
    std::chrono::steady_clock::duration took{};
};

void answer(int fd) {
    char text[60];
    for (ssize_t n = 0; (n = recv(fd, text, sizeof(text), 0)) > 0;)
        send(fd, std::string(60, 'x').data(), 60, MSG_NOSIGNAL);
}

TEST_F(Probe, MeasuresAServerThatAnswersOrCloses) {
    EXPECT_NEAR(probe(answer), 60, 20) << "loopback takes hardly any time on top of the penalty";
    EXPECT_NEAR(probe([](int fd) {
                    char c;
                    recv(fd, &c, 1, MSG_PEEK);
                    shutdown(fd, SHUT_WR);
                    answer(fd);
                }),
                60, 20);
}

TEST_F(Probe, FailsWithinItsBoundWhateverTheServerDoes) {
    using namespace std::chrono_literals;
    const auto untilGone = [](int fd) {
        char text[600];
        while (recv(fd, text, sizeof(text), 0) > 0) {
        }
    };
    EXPECT_EQ(probe({}), -1) << "refused";
    EXPECT_LT(took, 400ms);
    EXPECT_EQ(probe(untilGone), -1) << "silent";
    EXPECT_TRUE(took > 400ms && took < 2s);
    EXPECT_EQ(probe([](int fd) {
                  const linger reset{1, 0};
                  setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
              }),
              -1)
            << "reset";
    EXPECT_EQ(probe({}, "nosuch0"), -1) << "no such device";
    EXPECT_EQ(probe({}, "lo", "203.0.113.1"), -1) << "no route, or nobody there";
    EXPECT_LT(took, 2s);
    EXPECT_EQ(probe({}, "lo", "not an address"), -1);
    EXPECT_GE(probe([&](int fd) {  // a few bytes now and then, never a whole answer
                  for (char text[60]; recv(fd, text, sizeof(text), 0) > 0;)
                      send(fd, "drip", 4, MSG_NOSIGNAL);
              }),
              -1);
    EXPECT_LT(took, 11s) << "ten exchanges, each with both time-outs";
}

TEST(ProbeText, IsLettersAndDigitsUpToItsLastTwoBytes) {
    char buffer[60] = {};
    EXPECT_EQ(Tcping().genRandomString(sizeof(buffer), buffer), 0);
    EXPECT_EQ(strspn(buffer, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              58U);
    EXPECT_EQ(buffer[58] | buffer[59], 0);
}

}  // namespace
}  // namespace lnkd
