// SPDX-License-Identifier: Apache-2.0
#include "net/sock_diag.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <map>

namespace android::net {
namespace {

// A client whose kernel is the test.
class TestDiag : public SockDiag {
  public:
    TestDiag() {
        int dump[2], destroy[2];
        socketpair(AF_UNIX, SOCK_SEQPACKET, 0, dump);
        socketpair(AF_UNIX, SOCK_SEQPACKET, 0, destroy);
        dumpSocket.reset(dump[0]);
        destroySocket.reset(destroy[0]);
        kernelDump.reset(dump[1]);
        kernelDestroy.reset(destroy[1]);
    }
    void reply(const std::string& datagram) {
        ASSERT_GT(send(kernelDump.get(), datagram.data(), datagram.size(), 0), 0);
    }
    base::unique_fd kernelDump, kernelDestroy;
};

template <typename T>
std::string bytesOf(const T& value, size_t length = sizeof(T)) {
    return std::string(reinterpret_cast<const char*>(&value), length);
}

std::string message(uint16_t type, const std::string& payload, uint32_t lie = 0) {
    nlmsghdr header{};
    header.nlmsg_type = type;
    header.nlmsg_len = lie ? lie : static_cast<uint32_t>(sizeof(header) + payload.size());
    std::string all = bytesOf(header) + payload;
    all.resize((all.size() + 3) / 4 * 4);
    return all;
}

std::string attribute(uint16_t type, const std::string& payload, uint16_t lie = 0) {
    const rtattr header{lie ? lie : static_cast<uint16_t>(4 + payload.size()), type};
    std::string all = bytesOf(header) + payload;
    all.resize((all.size() + 3) / 4 * 4);
    return all;
}

std::string socketOf(uint32_t uid, uint32_t source = 0, uint32_t destination = 0) {
    inet_diag_msg msg{};
    msg.idiag_family = AF_INET;
    msg.idiag_state = 1;
    msg.idiag_uid = uid;
    msg.id.idiag_src[0] = htonl(source);
    msg.id.idiag_dst[0] = htonl(destination);
    msg.id.idiag_cookie[0] = 0xC0FFEE;
    return bytesOf(msg);
}

const std::string kDone = message(NLMSG_DONE, std::string(4, '\0'));

TEST(SocketDiagnostics, DestroysWhatThePredicateWantsAndReadsOnOverBrokenReplies) {
    TestDiag diag;
    diag.reply(message(20, socketOf(7)) + message(20, socketOf(8)) + message(20, "short"));
    diag.reply("tiny");
    diag.reply(message(20, socketOf(7), 8) + message(20, socketOf(7)));     // too short a length
    diag.reply(message(20, socketOf(7), 4096) + message(20, socketOf(7)));  // beyond its datagram
    diag.reply(message(20, socketOf(7)) + kDone);
    EXPECT_EQ(diag.readDiagMsg(IPPROTO_TCP, [](auto, auto* msg) { return msg->idiag_uid == 7; }),
              0);
    for (int expected = 0; expected < 2; ++expected) {
        uint8_t request[100];
        ASSERT_EQ(recv(diag.kernelDestroy.get(), request, sizeof(request), MSG_DONTWAIT), 72);
        inet_diag_req_v2 body;
        memcpy(&body, request + 16, sizeof(body));
        EXPECT_EQ(body.idiag_states, 2U);
        EXPECT_EQ(body.id.idiag_cookie[0], 0xC0FFEEU);
    }
    char none;
    EXPECT_EQ(recv(diag.kernelDestroy.get(), &none, 1, MSG_DONTWAIT), -1);
}

TEST(SocketDiagnostics, EndsADumpWithTheKernelsError) {
    for (const auto& [reply, result] : std::map<std::string, int>{
                 {message(NLMSG_ERROR, std::string("\xfe\xff\xff\xff", 4)), -ENOENT},
                 {message(NLMSG_ERROR, ""), -EBADMSG},
                 {kDone, 0}}) {
        TestDiag diag;
        diag.reply(reply);
        EXPECT_EQ(diag.readDiagMsg(IPPROTO_TCP, [](auto, auto*) { return true; }), result);
    }
    TestDiag diag;
    nlmsgerr refused{};
    refused.error = -EPERM;
    diag.reply(message(NLMSG_ERROR, bytesOf(refused)));
    iovec vectors[1] = {};
    EXPECT_EQ(diag.sendDumpRequest(IPPROTO_TCP, AF_INET, 0, 0xFFF, vectors, 1), -EPERM);
}

TEST(SocketDiagnostics, FindsTheLastTcpInfoThatLiesWithinItsMessage) {
    const std::string odd = attribute(1, "abc"), first = attribute(INET_DIAG_INFO, "first");
    const std::pair<std::string, std::string> cases[] = {
            {"", "none"},
            {odd, "none"},
            {odd + first, "first"},
            {first + odd + attribute(INET_DIAG_INFO, "second"), "second"},
            {first + attribute(INET_DIAG_INFO, "x", 200), "first"},
            {first + attribute(INET_DIAG_INFO, "x", 3), "first"},
            {first + "ab", "first"},
            {attribute(INET_DIAG_INFO, ""), ""},
    };
    for (const auto& [attributes, expected] : cases) {
        TestDiag diag;
        diag.reply(message(99, "other") + message(20, socketOf(1) + attributes) + kDone);
        std::string found;
        EXPECT_EQ(diag.readDiagMsgWithTcpInfo([&](auto*, auto& info) {
            const auto* const bytes = reinterpret_cast<const char*>(info.bytes);
            found = bytes ? std::string(bytes, info.length) : "none";
        }),
                  0);
        EXPECT_EQ(found, expected);
    }
}

TEST(SocketDiagnostics, KnowsWhatStaysOnThisMachine) {
    const auto loopback4 = [](uint32_t source, uint32_t destination) {
        inet_diag_msg msg;
        const std::string bytes = socketOf(0, source, destination);
        memcpy(&msg, bytes.data(), sizeof(msg));
        return SockDiag::isLoopbackSocket(&msg);
    };
    EXPECT_TRUE(loopback4(0x7F000001, 0x08080808) && loopback4(0x0A000001, 0x7F123456));
    EXPECT_TRUE(loopback4(0x0A000001, 0x0A000001));
    EXPECT_FALSE(loopback4(0x0A000001, 0x0A00007F));
    inet_diag_msg msg{};
    msg.idiag_family = AF_INET6;
    msg.id.idiag_src[3] = htonl(1);
    EXPECT_TRUE(SockDiag::isLoopbackSocket(&msg)) << "::1";
    msg.id.idiag_src[2] = htonl(0xFFFF);
    EXPECT_FALSE(SockDiag::isLoopbackSocket(&msg)) << "::ffff:0.0.0.1";
    msg.id.idiag_src[3] = htonl(0x7F000002);
    EXPECT_TRUE(SockDiag::isLoopbackSocket(&msg)) << "::ffff:127.0.0.2";
    msg.idiag_family = AF_UNIX;
    EXPECT_FALSE(SockDiag::isLoopbackSocket(&msg));
}

TEST(SocketDiagnostics, OpensOnce) {
    SockDiag diag;
    EXPECT_TRUE(diag.open());
    EXPECT_FALSE(diag.open());
    EXPECT_EQ(diag.destroySockets(IPPROTO_TCP, 4294967294U, false), 0) << "still usable";
}

}  // namespace
}  // namespace android::net
