// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "session/command.h"

namespace lnkd {
namespace {

// What becomes of a line: "id length <text>" of its message, or the error.
std::string outcome(const std::string& line) {
    Command command;
    std::string error;
    if (!parseCommand(line, &command, &error)) {
        return error;
    }
    const msg_t sent = messageOf(command);
    return std::to_string(sent.id) + ' ' + std::to_string(sent.length) + " <" + sent.message + '>';
}

TEST(LnkdctlLine, BecomesOneMessageOrOneError) {
    std::string uids = "10123";
    for (int i = 0; i < 509; ++i)
        uids += ",7";  // 1023 bytes: as many as fit a message
    const std::pair<std::string, std::string> cases[] = {
            {"\tinterfaces  wlan0,rmnet_data0\r", "2 17 <wlan0,rmnet_data0>"},
            {"interfaces", "2 0 <>"},  // none is up
            {"interfaces wlan0,a;rm", "\"a;rm\": not an interface name"},
            {"interfaces wlan0,", "\"\": not an interface name"},
            {"interfaces a2345678901234.", "2 15 <a2345678901234.>"},
            {"interfaces a234567890123456", "\"a234567890123456\": not an interface name"},
            {"whitelist none", "1 4 <NULL>"},
            {"double-wlan", "double-wlan: UIDS is missing"},
            {"double-wlan 100123", "\"100123\": not a UID for this list"},
            {"whitelist " + uids, "1 1023 <" + uids + ">"},
            {"whitelist " + uids + "7", "whitelist: 1024 bytes do not fit"},
            {"bssid aa:bb:cc:dd:ee:ff,112233445566", "9 30 <aa:bb:cc:dd:ee:ff,112233445566>"},
            {"bssid aabbccddeeff:", "\"aabbccddeeff:\": not a BSSID"},
            {"game start 10200,1010200", "5 13 <10200,1010200>"},
            {"game stop", "6 0 <>"},
            {"game start 4294967296", "\"4294967296\": not a UID"},
            {"voip start 10099", "8 5 <10099>"},
            {"voip start 0", "\"0\": not the UID of an application"},
            {"voip stop", "8 1 <0>"},
            {"rtt 121", "4 3 <121>"},
            {"rtt fast", "\"fast\": not milliseconds"},
            {"game", "\"game\": not a command"},
            {"\033[2Jboo", "\"?[2Jboo\": not a command"},
    };
    for (const auto& [line, expected] : cases) {
        EXPECT_EQ(outcome(line).substr(0, expected.size()), expected) << line;
    }
}

// Runs the tool on `input` against a socket in the current folder; returns its exit status.
int runTool(const std::string& options, const std::string& input) {
    std::ofstream("input") << input;
    return WEXITSTATUS(
            std::system((LNKDCTL " --socket socket " + options + " <input 2>errors").c_str()));
}

TEST(LnkdctlSession, SendsWholeRecordsInOrderAndReportsHowItWent) {
    char folder[] = "/tmp/lnkdctl-XXXXXX";
    std::filesystem::current_path(mkdtemp(folder));
    EXPECT_EQ(runTool("", "metered 1\n"), 3) << "nobody listens";
    EXPECT_EQ(runTool("--period soon", ""), 2);

    const sockaddr_un address = {AF_UNIX, "socket"};
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 2), 0);
    const auto start = std::chrono::steady_clock::now();
    const char script[] = "metered 0\n# comment\n\nmetered 2\nwhitelist 7\nmetered 1";
    EXPECT_EQ(runTool("--period 50", script), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100)) << "pace";
    std::string errors;
    std::getline(std::ifstream("errors"), errors);
    EXPECT_EQ(errors, "lnkdctl: line 4: \"2\": not 0 or 1");
    const int connection = accept(listener, nullptr, nullptr);
    std::string received;
    for (msg_t sent; recv(connection, &sent, sizeof(sent), MSG_WAITALL) == sizeof(sent);) {
        received += std::to_string(sent.id) + '=' + sent.message + ' ';
    }
    EXPECT_EQ(received, "18=0 1=7 18=1 ");
    close(connection);

    // A daemon that goes away ends a session that waits, well before the wait is over.
    std::thread daemon([&] { close(accept(listener, nullptr, nullptr)); });
    EXPECT_EQ(runTool("", "metered 0\nwait 3600000\nmetered 1\n"), 3);
    shutdown(listener, SHUT_RDWR);
    daemon.join();
    close(listener);
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace lnkd
