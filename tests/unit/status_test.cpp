// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>

#include "status/live_view.h"
#include "status/picture.h"
#include "status/probe_results.h"
#include "status/status_json.h"
#include "status/warnings.h"

namespace lnkd {
namespace {

// A daemon with a share rule for each of some links, in that order, each of half of what is left.
Observation withShares(const std::vector<std::string>& links) {
    std::string mangle = "-P OUTPUT ACCEPT -c 0 0\n-N zelk_SLA\n";
    std::string rules;
    for (const std::string& link : links) {
        mangle += "-N zelk_fw_" + link + '\n';
        rules += "-A zelk_SLA -p tcp -m statistic --mode random --probability 0.50000000000 -c 7 "
                 "9 " +
                 ("-j zelk_fw_" + link) + "\n-A zelk_fw_" + link +
                 " -c 3 4 -j MARK --set-xmark 0x5a/0xffffffff\n";
    }
    Observation seen;
    seen.daemon.value = DaemonProcess{};
    seen.filter.mangle = parseFilterTable(mangle + rules);
    return seen;
}

TEST(StatusPicture, TellsFromTheShareRulesWhatEachLinkGetsAndWhetherItIsMetered) {
    struct Case {
        std::vector<std::string> order;
        std::optional<bool> cellularIsMetered;
    };
    const Case cases[] = {
            {{"wlan0", "rmnet_data0"}, true},
            {{"rmnet_data0", "wlan0"}, false},
            {{"wlan0", "wlan1", "ccmni0", "rmnet_data0"}, true},
            {{"rmnet_data0"}, std::nullopt},
            {{"eth0", "rmnet_data0"}, std::nullopt},            // the same order either way
            {{"wlan1", "rmnet_data0", "wlan0"}, std::nullopt},  // no order of the daemon's
    };
    for (const Case& c : cases) {
        const Picture picture = pictureOf(withShares(c.order));
        ASSERT_EQ(picture.links.size(), c.order.size());
        double left = 1;
        for (const std::string& name : c.order) {
            left /= 2;
            for (const LinkPicture& link : picture.links) {
                if (link.name == name) {
                    EXPECT_EQ(link.share, left) << name;
                    EXPECT_EQ(link.dealtConnections, 7U);
                    EXPECT_EQ(link.steeredBytes, 4U);
                    const bool isCellular = name[0] == 'r' || name[0] == 'c';
                    EXPECT_EQ(link.metered, isCellular ? c.cellularIsMetered : false) << c.order[0];
                }
            }
        }
        EXPECT_EQ(picture.defaultShare, left);
    }
}

// The table is the kernel's own file of each process: no world hides it.
TEST(StatusJson, KnowsNoMarksOfConnectionsThatWereNotRead) {
    Observation seen = withShares({"wlan0"});
    const auto says = [&seen](const char* part) {
        return statusJson(seen, pictureOf(seen), {}).find(part) != std::string::npos;
    };
    EXPECT_FALSE(says("\"by_mark\": null"));
    seen.connections.problem = "left out here";
    EXPECT_TRUE(says("\"by_mark\": null"));
}

// What no world lets happen: older kernels take a policy rule twice, and the size of the connection
// table is the whole machine's.
TEST(StatusWarnings, TellOfPolicyRulesThatAreThereTwiceAndOfAFullTable) {
    Observation seen = withShares({"wlan0"});
    seen.tables.add("1001 wlan0\n");
    const PolicyRule rule{kPolicyPriority, 0x5A, UINT32_MAX, 1001, true};
    seen.policyRules.value = {rule, rule};
    seen.interfaces.value["wlan0"].isUp = true;
    seen.defaultRoutes.value = {{1001, 2, "", true, 0}};
    seen.tracked.value = {95, 100};
    seen.filter.mangle.problem = "left out here";
    const auto found = [&seen] {
        std::string all;
        for (const Warning& warning : findWarnings(seen, pictureOf(seen)))
            all += warning.id + ' ' + warning.subject + ' ';
        return all;
    };
    EXPECT_EQ(found(), "tracking-full nf_conntrack ");
    seen.filter.mangle.problem = "";
    seen.filter.nat.problem = "left out here";
    EXPECT_EQ(found(), "policy-rule-twice wlan0 tracking-full nf_conntrack ");
    seen.policyRules.value.pop_back();
    seen.tracked.value.count = 94;
    EXPECT_EQ(found(), "");
    // A mark that the configuration gave to the link.
    seen.filter.mangle.value["zelk_fw_wlan0"][0].words = {"-j", "MARK", "--set-xmark",
                                                          "0x77/0xffffffff"};
    seen.policyRules.value[0].mark = 0x77;
    EXPECT_EQ(found(), "");
    EXPECT_EQ(pictureOf(seen).leftRules, 1U);
}

TEST(ProbeResults, AreTheLastOfEachLinkOfTheProcess) {
    const std::string pass =
            "caclaverageInterfaceSpeed: SLA_PING Ping Pass for RTT interface (wlan0) "
            "(short_average "
            "= 30) (long_average = 40) (cacl = 35) (raw = 31) (longpreviousSpeed size= 10) "
            "(m_shortpreviousSpeed size= 3) (alpha_percent = 50)";
    const std::string fail =
            "setSpeed: SLA_PING Ping FAIL for RTT interface (wlan1) (calc = -1)(old speed = 9) "
            "(new prev = 500) (alpha_percent = 50)";
    const auto line = [](int pid, const std::string& text) {
        return "11-25 10:50:22.264    " + std::to_string(pid) +
               "   226 I DVX-Lnkd-SlaPing: " + text + '\n';
    };
    const auto level = [](const std::string& link, int value) {
        return "caclInterfaceLevel: SLA_PING cacl Interface Level interface (" + link +
               ") (network level = " + std::to_string(value) + ')';
    };
    const std::string log = line(18, fail) + line(18, level("wlan0", 9)) + line(18, pass) +
                            line(18, level("wlan0", 11)) + line(18, level("wlan1", 1)) +
                            "what others write\n" + line(19, level("wlan0", 3)) +
                            line(18, "SLA_PING Ping RTT interface (rmnet_data0) num ping") +
                            line(18, "TCPing cacla rtt is 77,device is rmnet_data0") +
                            line(18, "SLA_PING Ping RTT interface (rmnet_data0) num ping");
    std::map<std::string, ProbeResult> results = probeResultsOf(log, 18).links;
    EXPECT_EQ(results["wlan0"].rttMs, 35);
    EXPECT_EQ(results["wlan0"].level, 11);
    EXPECT_TRUE(results["wlan1"].hasFailed && !results["wlan1"].rttMs.has_value());
    EXPECT_EQ(results["rmnet_data0"].rttMs, 77);
    EXPECT_EQ(probeResultsOf(log, 0).links["wlan0"].level, 3);
    const std::string choice =
            line(18, "calcInterface SLA_RTT_SELECTED current =  a , prvious = a");
    EXPECT_EQ(
            probeResultsOf(choice + line(18, "m_interfaceInfoMap add wlan0 success！") + choice, 0)
                    .choices,
            1);
    EXPECT_TRUE(probeResultsOf(log, 20).links.empty());
}

// A view of a text that does not fit the pipe to its reader, in a process of its own.
pid_t startView(int output) {
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(output, STDOUT_FILENO);
        close(output);
        const Terminal terminal;
        LiveView view(terminal, std::chrono::hours(1));
        _exit(view.show(std::string(100000, 'x')) ? 0 : 1);
    }
    close(output);
    return pid;
}

// Whether a signal waits until the process lets it through.
bool hasPending(pid_t pid) {
    std::ifstream stream("/proc/" + std::to_string(pid) + "/status");
    const std::string status(std::istreambuf_iterator<char>{stream}, {});
    return status.find("ShdPnd:\t0000000000000000") == std::string::npos;
}

TEST(LiveView, ASignalWhileTheTextIsWrittenCountsBeforeTheInterval) {
    for (const int signal : {SIGWINCH, SIGTSTP}) {
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        fcntl(ends[1], F_SETPIPE_SZ, 4096);  // full, as poll sees it, with its first bytes
        const pid_t pid = startView(ends[1]);
        pollfd polled{ends[0], POLLIN, 0};
        ASSERT_EQ(poll(&polled, 1, 10000), 1);
        kill(pid, signal);
        while (hasPending(pid)) {
        }
        std::string bytes(4096, 0);
        for (ssize_t n = 0, left = 100000; left > 0; left -= n) {
            n = read(ends[0], bytes.data(), bytes.size());
            ASSERT_GT(n, 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, WUNTRACED), pid);
        EXPECT_EQ(WIFSTOPPED(status), signal == SIGTSTP);
        if (WIFSTOPPED(status)) {
            kill(pid, SIGCONT);
            ASSERT_EQ(waitpid(pid, &status, 0), pid);
        }
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        close(ends[0]);
    }
}

}  // namespace
}  // namespace lnkd
