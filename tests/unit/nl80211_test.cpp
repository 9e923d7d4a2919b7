// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>

#include "wificond/net/netlink_utils.h"

namespace android::wificond {
namespace {

using namespace std::literals;

// Little-endian, and short enough for lengths of one byte.
std::string message(char type, const std::string& payload, char flags = 0, char sequence = 1) {
    return static_cast<char>(16 + payload.size()) + "\0\0\0"s + type + '\0' + flags + '\0' +
           sequence + std::string(7, '\0') + payload;
}

// `lie` is a length to tell instead of the true one.
std::string attribute(char type, const std::string& payload, size_t lie = 0) {
    return std::string{static_cast<char>(lie ? lie : 4 + payload.size()), 0, type, 0} + payload +
           std::string(-payload.size() % 4, '\0');
}

// A client whose kernel is the test.
class Client : public NetlinkUtils {
  public:
    explicit Client(const std::vector<std::string>& replies = {}) {
        int ends[2];
        socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends);
        netlinkFd.reset(ends[0]);
        kernel.reset(ends[1]);
        for (const std::string& reply : replies)
            send(kernel, reply.data(), reply.size(), 0);
    }
    std::string request() const {
        char buffer[100];
        return {buffer, size_t(std::max(recv(kernel, buffer, 100, MSG_DONTWAIT), ssize_t(0)))};
    }
    int station() { return GetStationInfo("0A1b2C3d4E5f7", "lo"); }
    int family() { return DiscoverFamilyId(); }

    base::unique_fd kernel;
};

TEST(GenericNetlink, AsksByteForByte) {
    const pid_t pid = getpid();
    const std::string port(reinterpret_cast<const char*>(&pid), sizeof(pid));
    Client client({message(16, "\1\1\0\0"s + attribute(1, "\x1d\0"s) + attribute(2, "nl80211\0"s)),
                   message(2, "\0\0\0\0"s, 0, 2)});
    EXPECT_TRUE(client.family());
    EXPECT_EQ(client.request(),
              "\x20\0\0\0\x10\0\1\0\1\0\0\0"s + port + "\3\1\0\0\x0c\0\2\0nl80211\0"s);
    EXPECT_EQ(client.station(), 0);
    EXPECT_EQ(client.request(), "\x28\0\0\0\x1d\0\1\0\2\0\0\0"s + port +
                                        "\x11\1\0\0\x08\0\3\0\1\0\0\0\x0a\0\6\0\x0a\x1b,=N_\0\0"s);
    for (const char* mac : {"", "0a1b2c3d4e5"})
        EXPECT_EQ(client.GetStationInfo(mac, "lo"), 0);
    EXPECT_EQ(client.request(), "") << "asked about no address";
}

TEST(GenericNetlink, TakesFromRepliesOnlyWhatIsThere) {
    const auto reply = [](const std::string& attributes, char flags = 0, char sequence = 1) {
        return message(29, "\x13\1\0\0"s + attributes, flags, sequence);
    };
    const std::string signal = attribute(7, "\xc5"), good = attribute(21, signal),
                      weak = attribute(21, attribute(7, "\x9c")), yes = reply(good),
                      done = message(3, ""), family = "\1\1\0\0"s, id = attribute(1, "\x1d\0"s),
                      named = family + id + attribute(2, "nl80211"), group = attribute(1, "g");
    const auto station = &Client::station, families = &Client::family;
    using Case = std::tuple<decltype(station), std::vector<std::string>, int, std::string>;
    for (const auto& [ask, datagrams, result, line] :
         {Case{station, {yes + done}, -59, "No handler for message: 1"},
          {station, {reply(good, 2) + reply(weak, 2), "", reply(weak, 2) + done + yes}, -59, ""},
          {station, {message(4, "") + yes}, 0, "Get message overrun notification"},
          {station, {message(1, "") + yes}, 0, "NL80211_CMD_GET_STATION failed"},
          {station, {reply(weak, 0, 9) + yes, yes}, -59, "No handler for message: 9"},
          {station, {"short", reply(weak, 0, 0) + "short", yes}, -59, "payload is broken."},
          {station, {std::string(40, '\0'), yes}, -59, "Cannot retrieve netlink header."},
          {station, {message(29, ""), yes}, -59, "Cannot retrieve generic netlink header."},
          {station, {"\x11" + done.substr(1), yes}, -59, "Discarding incomplete / invalid"},
          {station, {message(2, "abc"), yes}, -59, "Broken error message."},
          {station, {message(2, "\xfe\xff\xff\xff")}, 0, "get station request: 254"},
          {station, {reply(attribute(20, "abcde") + good + weak)}, -59, ""},
          {station, {reply(attribute(20, "", 3) + good)}, 0, "Failed to get NL80211_ATTR_STA_INFO"},
          {station, {reply(attribute(21, signal, 99))}, 0, "broken nl80211 atrribute."},
          {station, {reply(attribute(21, attribute(7, "\xc5\0"s)))}, 0, "NL80211_STA_INFO_SIGNAL"},
          {families, {message(16, family + attribute(1, "1234"))}, 0, "Failed to get family id"},
          {families, {message(16, family + id + attribute(2, "nl80"))}, 0, "Ignoring none nl80211"},
          {families, {message(16, named + attribute(7, attribute(1, group)))}, 1, "get group id"},
          {families, {message(16, named + attribute(7, attribute(1, "", 9)))}, 1, "nla_len."}}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ((Client(datagrams).*ask)(), result) << line;
        EXPECT_NE(testing::internal::GetCapturedStderr().find(line), std::string::npos) << line;
    }
}

TEST(GenericNetlink, GivesUpAfterASecond) {
    Client silent({message(29, "\x13\1\0\0"s, 2)}), endless;
    shutdown(endless.kernel, SHUT_WR);  // ready for ever, and never a whole reply
    testing::internal::CaptureStderr();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(silent.station() + endless.station(), 0);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(took > 1990ms && took < 9s);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("Failed to poll netlink fd: time out \n"), log.npos) << log;
    EXPECT_NE(log.find("Timeout waiting for netlink reply messages"), log.npos) << log;
}

TEST(GenericNetlink, SaysWhyThereIsNoAnswer) {
    testing::internal::CaptureStderr();
    const bool started = NetlinkUtils::instance()->Start();
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(started || log.find("Failed to get NL80211 family id") != log.npos) << log;

    testing::internal::CaptureStderr();
    EXPECT_EQ(seteuid(1), 0) << "who may not force the size of a buffer";
    EXPECT_FALSE(NetlinkUtils::instance()->Start());
    EXPECT_EQ(seteuid(0), 0);
    log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("Failed to set uevent socket SO_RCVBUFFORCE option"), log.npos) << log;
}

}  // namespace
}  // namespace android::wificond
