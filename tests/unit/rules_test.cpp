// SPDX-License-Identifier: Apache-2.0
#include <sys/resource.h>

#include <cmath>
#include <csignal>
#include <random>
#include <regex>
#include <sstream>

#include "core/parameters.h"
#include "core/stop_request.h"
#include "private_world.h"
#include "rules/iptables_manager.h"
#include "rules/shell_command.h"

namespace lnkd {

using Rules = PrivateWorld;

TEST_F(Rules, AreBuiltFromInsideOutAndRemovedFromOutsideIn) {
    Parameters::instance()->UpdateInterface("wlan0,wlan1,rmnet_data0", true);
    IptablesManager* const rules = IptablesManager::instance();
    EXPECT_EQ(commands(),
              "-N @DVX; -F @DVX; -N @SLA; -F @SLA; -N @SLS; -F @SLS; -N @DVX_wapper; -F "
              "@DVX_wapper; -I @DVX 1 -j @SLS; -I @DVX 2 -m state --state ESTABLISHED,RELATED -j "
              "CONNMARK --restore-mark; -I @DVX 3 -j @SLA; -D OUTPUT -j @DVX_wapper; -I OUTPUT -j "
              "@DVX_wapper; nat -F @nat; nat -N @nat; nat -D POSTROUTING -j @nat; nat -I "
              "POSTROUTING -j @nat; ");
    for (const auto& [name, record] : *Parameters::instance()->interfaces()) {
        rules->create_DVX_FWMARK_chain_for_iface(record.get());
        rules->remove_DVX_FWMARK_chain_for_iface(record.get());
        const std::regex own(name + '|' + record->fwmark);
        const char* const wrapper = name == "wlan0" ? "" : "-N @fw_%_wrapper; -F @fw_%_wrapper; ";
        EXPECT_EQ(std::regex_replace(commands(), own, "%"),
                  std::string("-N @fw_%; -F @fw_%; ") + wrapper +
                          "-A @fw_% -j MARK --set-mark %; -A @fw_% -j CONNMARK --save-mark; -A "
                          "@fw_% -j ACCEPT; ip -4 rule add fwmark % table % prio 30000; nat -A "
                          "@nat -o % -j MASQUERADE; -F @SLA; -F @fw_%_wrapper; -X @fw_%_wrapper; "
                          "-F @fw_%; -X @fw_%; ip -4 rule del fwmark % prio 30000; nat -D @nat -o "
                          "% -j MASQUERADE; ");
    }
    IptablesManager::clean_DVX_iptables();
    const std::string fixed =
            "-D OUTPUT -j @DVX_wapper; nat -D POSTROUTING -j @nat; nat -F @nat; nat -X @nat; -F "
            "@DVX_wapper; -X @DVX_wapper; -F @DVX; -X @DVX; -F @SLA; -X @SLA; -F @SLS; -X @SLS; ";
    EXPECT_EQ(commands().substr(0, fixed.size()), fixed) << "then those of the interfaces";
    EXPECT_EQ(IptablesManager::instance(), nullptr) << "nothing is built again";
}

TEST_F(Rules, OfUidListsHoldWhatIsAUidInListOrder) {
    Parameters* const p = Parameters::instance();
    p->UpdateInterface("wlan0,wlan1,rmnet_data0", true);
    p->setGamingUids("1010099,1;touch /pwned,,4294967296,10100,");
    p->populateGamingUids();
    p->setDblWlanUidWhitelist("10200,$ID,1020000");
    p->populateDblWlanUidWhitelist();
    p->setuidwhitelist("10100,1030000,`i`,10300");
    p->populateuidwhitelist();
    IptablesManager* const rules = IptablesManager::instance();
    commands();
    rules->setup_dvx_whitelist();
    EXPECT_EQ(commands(),
              "-F @DVX_wapper; -A @DVX_wapper uid 1010099 -j @DVX; -A @DVX_wapper uid 10100 -j "
              "@DVX; -A @DVX_wapper uid 10200 -j @DVX; -A @DVX_wapper uid 10100 -j @DVX; -A "
              "@DVX_wapper uid 10300 -j @DVX; ");
    rules->setup_uid_whitelist();
    rules->setup_double_wlan_uid_whitelist();
    EXPECT_EQ(commands(),
              "-F @fw_rmnet_data0_wrapper; -A @fw_rmnet_data0_wrapper uid 10100 -j "
              "@fw_rmnet_data0; -A @fw_rmnet_data0_wrapper uid 10300 -j @fw_rmnet_data0; "
              "-F @fw_wlan1_wrapper; -A @fw_wlan1_wrapper uid 10200 -j @fw_wlan1; ");
}

TEST_F(Rules, OfSharesHaveTheProbabilityOfWhatEarlierOnesLeaveAndFailWithoutAShell) {
    Parameters::instance()->UpdateInterface("wlan0,wlan1,rmnet_data0", true);
    IptablesManager* const rules = IptablesManager::instance();
    commands();
    const std::pair<std::map<std::string, float>, std::string> cases[] = {
            {{{"gone", 1.0F}}, ""},
            {{{"wlan0", 1.0F}, {"rmnet_data0", 0.25F}},
             "1.000000 wlan0 0.000000 rmnet_data0_wrapper "},
            {{{"wlan0", 0.25F}, {"wlan1", 0.1875F}, {"rmnet_data0", 0.125F}},
             "0.250000 wlan0 0.250000 wlan1_wrapper 0.222222 rmnet_data0_wrapper "},
            // What 0.99 leaves, in a float, is a little less than 0.01.
            {{{"wlan0", 0.99F}, {"wlan1", 0.01F}}, "0.990000 wlan0 1.000000 wlan1_wrapper "},
            {{{"wlan0", -1.0F}, {"wlan1", NAN}}, "0.000000 wlan0 0.000000 wlan1_wrapper "}};
    for (const auto& [shares, expected] : cases) {
        LinkStatsMap links;
        for (const auto& [name, share] : shares) {
            links[name].reset(new linkStatsWrapper_t{{}, nullptr, {}, 0, 0, share});
            name.copy(links[name]->interfaceName, name.size());
        }
        rules->set_SLA_ratio_iptables(links, *Parameters::instance()->interfaces());
        const std::regex rule("-A @SLA share ([0-9.]+) -j @fw_(\\w+); ");
        EXPECT_EQ(std::regex_replace(commands(), rule, "$1 $2 "), "-F @SLA; " + expected);
    }
    const rlimit none{};  // no process more for a shell; this holds for everyone but root
    ASSERT_TRUE(setrlimit(RLIMIT_NPROC, &none) == 0 && setresuid(1, 1, 0) == 0);
    EXPECT_EQ(rules->set_SLA_ratio_iptables({}, {}), -1);
    EXPECT_EQ(setresuid(0, 0, 0), 0);
}

TEST(ShellCommand, HasNothingOfTheDaemonsSignalsGroupOrInput) {
    sigset_t signals;
    sigfillset(&signals);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    ShellCommand shell("cat; grep -E 'Sig(Blk|Ign)' /proc/self/status; echo $$; ps -o pgid= $$");
    std::string all, line(100, '\0');
    while (shell.readLine(line.data(), line.size()))
        all += line.c_str();
    EXPECT_TRUE(shell.finish());
    const std::regex own("SigBlk:\t0+\nSigIgn:\t[0-9a-f]+0{7}\n(\\d+)\n *\\1\n");
    EXPECT_TRUE(std::regex_match(all, own)) << all;
}

TEST(ShellCommand, EndsWithAllThatItStarted) {
    requestStop();  // or it would take ten seconds
    ShellCommand shell("sleep 777 & echo $!");
    char line[20] = {};
    EXPECT_TRUE(shell.readLine(line, sizeof(line)));
    EXPECT_FALSE(shell.readLine(line + 10, 10)) << "the time is over, the output is not";
    EXPECT_FALSE(shell.finish());
    // Whoever adopted it may not wait for it.
    const std::regex ended("\\d+ \\(sleep\\) [ZX] .*|");
    std::string state("?");
    for (int look = 0; look < 500 && !std::regex_match(state, ended); ++look) {
        usleep(10000);
        std::ifstream file("/proc/" + std::to_string(atoi(line)) + "/stat");
        state.clear();
        std::getline(file, state);
    }
    EXPECT_TRUE(std::regex_match(state, ended)) << state;
}

using MarkCount = PrivateWorld;

TEST_F(MarkCount, IsThatOfTheMatchingLinesHoweverTheTableIsCut) {
    EXPECT_EQ(IptablesManager::get_nf_conntrack_mark_number("0x5A"), 0) << "no table";
    constexpr size_t kBuffer = 32768;
    std::vector<std::string> tables = {"mark=90" + std::string(3 * kBuffer, 'x') + "mark=90\n", ""};
    const char* const pieces[] = {"mark=9", "0", "mark=90", "1", "2", "mark=", "\n", "mmar", " "};
    std::mt19937 random(4);
    while (tables[1].size() < 20 * kBuffer)
        tables[1] += pieces[random() % std::size(pieces)];
    for (size_t before = 0; before <= 8; ++before)
        tables.push_back(std::string(kBuffer - before - 1, 'x') + "\nmark=90\nmark=901");
    const std::pair<const char*, const char*> marks[] = {
            {"0x5A", "mark=90"}, {"0x5B", "mark=91"}, {"0x5C", "mark=92"}, {"0x5a", "mark=0"}};
    for (const std::string& table : tables) {
        write("/proc/net/nf_conntrack", table);
        for (const auto& [mark, word] : marks) {
            int32_t expected = 0;
            std::istringstream lines(table);
            for (std::string line; std::getline(lines, line);)
                expected += line.find(word) != std::string::npos ? 1 : 0;
            EXPECT_EQ(IptablesManager::get_nf_conntrack_mark_number(mark), expected) << mark;
        }
    }
}

}  // namespace lnkd
