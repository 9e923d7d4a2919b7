// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <thread>

#include "aggregation/sla_stats_data.h"
#include "aggregation/sla_stats_impl.h"
#include "core/parameters.h"
#include "private_world.h"
#include "rules/iptables_manager.h"
#include "selection_peer.h"

namespace lnkd {

namespace {

constexpr const char* kLinks[] = {"rmnet_data0", "wlan0", "wlan1"};
constexpr char kConf[] = "/replay.conf";
constexpr char kLog[] = "/replay.log";

// A daemon's work on random links, logged by itself; what its threads do, the test does.
class RandomLinks : public PrivateWorld {
  protected:
    void SetUp() override {
        PrivateWorld::SetUp();
        IptablesManager::instance();
        SmartLinkSelection::Init();
    }

    // Works with these settings, and returns what a replay of the log, less its beginning, makes
    // of them.
    std::string replayed(const std::string& settings, const std::string& known, int firstLine = 1) {
        write(kConf, known);
        for (size_t at = 0; at < settings.size(); at = settings.find('\n', at) + 1) {
            const size_t equals = settings.find('=', at);
            const size_t end = settings.find('\n', at);
            Parameters::instance()->setValue(settings.substr(at, equals - at).c_str(),
                                             settings.substr(equals + 1, end - equals - 1).c_str());
        }
        const int terminal = dup(STDERR_FILENO);
        const int log = open(kLog, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(log, STDERR_FILENO);
        work();
        dup2(terminal, STDERR_FILENO);
        close(log);
        close(terminal);
        FILE* const program =
                popen(("tail -n +" + std::to_string(firstLine) + " " + kLog + " | " + LNKD_REPLAY +
                       " --conf=" + kConf + " - | grep -o 'replayed: .*'")
                              .c_str(),
                      "r");
        char line[1000] = {};
        const bool isRead = fgets(line, sizeof(line), program) != nullptr;
        pclose(program);
        return isRead ? line : "nothing";
    }

  private:
    void work() {
        const auto log = [](const char* tag, const char* text) {
            __android_log_print(ANDROID_LOG_INFO, tag, "%s", text);
        };
        log("DVX-Lnkd-daemon", "Lnkd (SLA+SLS) 3.0.4.5 starting daemon");
        Parameters::instance()->UpdateInterface("rmnet_data0,wlan0,wlan1", true);
        log("DVX-Lnkd-LnkdSocket-Server", "recv msg: msg.id=5, msg.length=5, msg.message=[10123]");
        SmartLinkSelection* const engine = SmartLinkSelection::instance();
        engine->initPingThreads();
        Parameters::instance()->setGamingRunning(true);
        for (const char* link : kLinks)
            m_middle[link] = 100;
        for (int step = 0; step < 800; ++step) {
            probe(*engine);
            if (m_random() % 3 == 0)
                engine->slsChooseInterface();
            if (m_random() % 30 == 0)
                pass();
            // The hysteresis goes by the clock, and by parts of its milliseconds.
            std::this_thread::sleep_for(std::chrono::microseconds(m_random() % 1500));
        }
    }

    void probe(SmartLinkSelection& engine) {
        const char* const link = kLinks[m_random() % 3];
        int32_t& middle = m_middle[link];
        middle = std::max(10, middle + static_cast<int32_t>(m_random() % 61) - 30);
        const bool isMiss = m_random() % 6 == 0;
        SmartLinkSelectionPeer(&engine).record(link).setSpeed(
                isMiss ? -1 : middle + static_cast<int32_t>(m_random() % 20));
    }

    void pass() {
        const InterfaceSnapshot table = Parameters::instance()->interfaces();
        uint32_t sums[2] = {};
        uint32_t most = 0;
        for (const char* link : kLinks) {
            if (m_shares[link] == nullptr)
                m_shares[link] = std::make_unique<linkStatsWrapper_t>();
            snprintf(m_shares[link]->interfaceName, sizeof(m_shares[link]->interfaceName), "%s",
                     link);
            const uint32_t rate = m_random() % 3 == 0 ? 0 : 500 + m_random() % 2000;
            const bool isMetered = table->at(link)->metered;
            m_shares[link]->linkRate = rate;
            sums[isMetered ? 1 : 0] += rate;
            most = isMetered ? most : std::max(most, rate);
        }
        const auto process = sums[0] <= Parameters::instance()->get(kWifiThreshold)
                                     ? SLA_CALC_WITH_METERED
                                     : SLA_CALC_UNMETERED_ONLY;
        if (SlaStatsImpl::calcSlaRatios(m_shares, *table, process, static_cast<float>(sums[1]),
                                        static_cast<float>(sums[0]), static_cast<float>(most),
                                        true))
            IptablesManager::instance()->set_SLA_ratio_iptables(m_shares, *table);
    }

    std::minstd_rand m_engine{12};
    uint32_t m_random() { return static_cast<uint32_t>(m_engine() >> 3); }
    std::map<std::string, int32_t> m_middle;
    LinkStatsMap m_shares;
};

TEST_F(RandomLinks, AreDecidedOnAgainAsTheLogSays) {
    for (const char* settings :
         {"alpha_percent=0\nt_hyst_s=1\nn_hyst=1\nmin_ping_times=2\n",
          "alpha_percent=70\nt_hyst_s=1\nn_hyst=3\nmin_ping_times=4\nwifi_threshold=3000\n",
          "alpha_percent=30\nt_hyst_s=0\nn_hyst=0\nmin_ping_times=1\nwifi_threshold=900\n"
          "min_ratio_change=40\n"}) {
        const std::string result = replayed(settings, settings);
        EXPECT_NE(result.find(" 0 passed over, 0 different"), std::string::npos) << result;
        EXPECT_EQ(result.find("replayed: 0 "), std::string::npos) << result;
    }
    const char* const joined =
            "alpha_percent=40\nt_hyst_s=0\nn_hyst=1\nmin_ping_times=3\nwifi_threshold=900\n"
            "min_ratio_change=40\n";
    const std::string middle = replayed(joined, joined, 600);
    EXPECT_NE(middle.find(" 0 different"), std::string::npos) << middle;
    EXPECT_EQ(middle.find(" 0 passed over"), std::string::npos) << middle;
    EXPECT_EQ(middle.find("replayed: 0 "), std::string::npos) << middle;
    const std::string wrong = replayed("n_hyst=1\nt_hyst_s=5\nmin_ping_times=3\n", "n_hyst=9\n");
    EXPECT_NE(wrong.find("different: "), std::string::npos) << wrong;
}

}  // namespace

}  // namespace lnkd
