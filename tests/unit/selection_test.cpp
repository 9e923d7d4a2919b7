// SPDX-License-Identifier: Apache-2.0
#include <arpa/inet.h>

#include <algorithm>
#include <numeric>

#include "core/parameters.h"
#include "private_world.h"
#include "rules/iptables_manager.h"
#include "selection/rssi_state_monitor.h"
#include "selection/smart_link_selection.h"
#include "selection/tcp_socket_monitor.h"
#include "selection_peer.h"

namespace lnkd {

namespace {

void feed(InterfaceRtt& record, std::initializer_list<int32_t> samples) {
    for (const int32_t sample : samples)
        record.setSpeed(sample);
}

TEST(SignalMonitor, MakesAWeakSignalExpensive) {
    const std::map<int32_t, int32_t> penalties = {{-128, 300}, {-86, 300}, {-85, 120},
                                                  {-76, 120},  {-75, 60},  {-65, 60},
                                                  {-64, 0},    {-1, 0},    {0, 60}};
    for (const auto& [dbm, ms] : penalties)
        EXPECT_EQ(RssiStateMonitor::penaltyFor(dbm), ms) << dbm;
}

TEST(InterfaceRating, SmoothsAnswersAndBridgesMissesUpToTheLimit) {
    InterfaceRtt record("wlan0", true);
    feed(record, {100});
    EXPECT_EQ(record.m_speed, 100) << "the first answer stands for the averages";
    feed(record, {100, 100, 100, 100, 100, 100, 100, 100, 100, 100, 400});
    EXPECT_EQ(record.m_speed, 100) << "a sample counts from the next one on";
    EXPECT_EQ(record.m_longpreviousSpeed.size(), 10U);
    EXPECT_EQ(record.m_shortpreviousSpeed, (std::vector<int32_t>{100, 100, 400}));
    feed(record, {100});
    EXPECT_EQ(record.m_speed, 165) << "half of 200 and of 130";
    feed(record, {-1, -1, -1, -1});
    EXPECT_EQ(record.m_networkLevel, 11);
    EXPECT_EQ(record.m_shortpreviousSpeed.back(), 100) << "a miss repeats the newest sample";
    feed(record, {-1});
    EXPECT_EQ(std::pair(record.m_speed, record.m_networkLevel), std::pair(-1, 1)) << "failed";
    feed(record, {80});
    EXPECT_GT(record.m_networkLevel, 1) << "one answer ends it";
    feed(record, {-1});
    EXPECT_EQ(record.m_networkLevel, 1) << "and one more miss brings it back";
}

TEST(InterfaceRating, FollowsItsBandsWithTwentyMillisecondsOfHysteresis) {
    struct Case {
        const char* name;
        int32_t speed, level;
    };
    // The short average alone: halves of an odd number lose one.
    Parameters::instance()->setValue("alpha_percent", "0");
    for (const Case& c : {Case{"wlan0", 1, 11},
                          {"wlan0", 119, 11},
                          {"wlan0", 120, 9},
                          {"wlan1", 219, 9},
                          {"wlan0", 220, 7},
                          {"wlan0", 419, 5},
                          {"wlan0", 420, 3},
                          {"wlan0", 9999, 3},
                          {"rmnet_data0", 89, 10},
                          {"rmnet_data0", 90, 8},
                          {"ccmni0", 189, 8},
                          {"Wlan0", 389, 4},
                          {"rmnet_data0", 390, 2},
                          {"wlan0", 0, 0}}) {
        InterfaceRtt record(c.name, true);
        feed(record, {c.speed});
        EXPECT_EQ(record.m_networkLevel, c.level) << c.name << ' ' << c.speed;
    }
    InterfaceRtt record("wlan0", true);
    for (const auto& [speed, level] :
         {std::pair(115, 11), {121, 11}, {136, 9}, {250, 7}, {50, 11}}) {
        record.m_longpreviousSpeed.assign(10, speed);
        record.m_shortpreviousSpeed.assign(3, speed);
        feed(record, {speed});
        EXPECT_EQ(record.m_networkLevel, level) << speed;
    }
}

TEST(InterfaceRating, ClampsWhatTheConfigurationMayHoldOutOfRange) {
    Parameters* const p = Parameters::instance();
    for (const auto& [alpha, speed] : {std::pair("250", 200), {"-5", 100}, {"30", 130}}) {
        p->setValue("alpha_percent", alpha);
        InterfaceRtt record("wlan0", true);
        record.m_longpreviousSpeed = {200};
        record.m_shortpreviousSpeed = {100};
        feed(record, {7});
        EXPECT_EQ(record.m_speed, speed) << alpha;
    }
    p->setValue("min_ping_times", "0");
    InterfaceRtt failed("wlan0", true);
    feed(failed, {10});
    EXPECT_EQ(failed.m_networkLevel, 1);
    p->setValue("min_ping_times", "1");
    InterfaceRtt raw("wlan0", true);
    feed(raw, {70, -1});
    EXPECT_EQ(std::pair(raw.m_speed, raw.m_networkLevel), std::pair(-1, 0)) << "never rated";
}

class Choice : public PrivateWorld {
  protected:
    void SetUp() override {
        PrivateWorld::SetUp();
        Parameters* const p = Parameters::instance();
        p->UpdateInterface("wlan0,wlan1,rmnet_data0", true);
        p->setValue("t_hyst_s", "10");
        IptablesManager::instance();
        commands();
        SmartLinkSelection::Init();
        m_choice = SmartLinkSelectionPeer(SmartLinkSelection::instance());
    }
    SmartLinkSelectionPeer m_choice{nullptr};
};

TEST_F(Choice, TakesTheBestLevelAndBreaksTiesByWhatIsChosen) {
    SmartLinkSelection* const engine = SmartLinkSelection::instance();
    engine->initPingThreads();
    EXPECT_EQ(m_choice.choose({}), "wlan0") << "unrated: the last that is no second Wi-Fi";
    EXPECT_EQ(commands(), "-F @SLS; -A @SLS -j @sls_uid_wlan0; ");
    EXPECT_EQ(m_choice.choose({{"wlan0", 9}, {"wlan1", 9}, {"rmnet_data0", 8}}), "wlan0");
    EXPECT_EQ(commands(), "") << "no switch, no rule";
    m_choice.setWindow(11, 5);
    EXPECT_EQ(m_choice.choose({{"rmnet_data0", 10}}), "rmnet_data0") << "the window is over";
    m_choice.setWindow(11, 5);
    EXPECT_EQ(m_choice.choose({{"rmnet_data0", 8}}), "wlan1") << "the later one, from cellular";
}

TEST_F(Choice, HoldsWithinItsWindowUnlessTheChosenLinkHasFailed) {
    EXPECT_EQ(m_choice.choose({{"wlan0", 9}, {"rmnet_data0", 8}}), "wlan0");
    m_choice.setWindow(3, 1);
    EXPECT_EQ(m_choice.choose({{"rmnet_data0", 10}}), "wlan0") << "one switch was allowed";
    EXPECT_EQ(m_choice.choose({{"wlan0", 1}}), "rmnet_data0") << "failed";
    m_choice.setWindow(3, 0);
    EXPECT_EQ(m_choice.choose({{"wlan0", 11}}), "wlan0") << "a switch is left";
    m_choice.setWindow(-3600, 1);  // the clock was set back by an hour
    EXPECT_EQ(m_choice.choose({{"wlan0", 3}}), "wlan0") << "held";
    EXPECT_EQ(m_choice.choose({{"wlan0", 1}}), "rmnet_data0") << "and not for ever";
}

TEST_F(Choice, ForgetsALinkThatIsTakenAwayAndRefusesACutName) {
    Parameters* const p = Parameters::instance();
    p->setGamingRunning(true);
    SmartLinkSelection* const engine = SmartLinkSelection::instance();
    EXPECT_EQ(m_choice.choose({{"wlan0", 9}, {"rmnet_data0", 8}}), "wlan0");
    engine->updateSlsInterfacemap("wlan0", false);
    m_choice.setWindow(0, 9);
    EXPECT_EQ(m_choice.choose({}), "rmnet_data0") << "nothing was chosen, so nothing holds";
    p->UpdateInterface("wlan45678901234", true);  // 15 characters, all that the kernel allows
    engine->updateSlsInterfacemap("wlan45678901234", true);
    engine->updateSlsInterfacemap("nosuch0", true);
    EXPECT_EQ(m_choice.size(), 2U);
    engine->threadDestory();
    engine->destoryPingThreads();
    EXPECT_EQ(m_choice.size(), 0U);
    EXPECT_EQ(m_choice.choose({}), "");
}

using Call = PrivateWorld;

TEST_F(Call, PointsTheProbesAtItsPeerOnce) {
    Parameters* const p = Parameters::instance();
    p->setVoipRunning(true);
    const std::string fallback = kDefaultRttServer;
    for (const std::string state :
         {"", "168204165019", "0,50195", "16820416,65536", "1,2", ",50195"}) {
        write("/proc/sla/sla_voip_state", state == "1,2" ? "1," : state);
        SmartLinkSelection::setVoipIpAddressAndPort();
        EXPECT_EQ(p->probeTarget().server, fallback) << state;
    }
    write("/proc/sla/sla_voip_state", "16820416,50195\n and more than it holds");
    SmartLinkSelection::setVoipIpAddressAndPort();
    EXPECT_EQ(p->probeTarget().server, "192.168.0.1");
    EXPECT_EQ(p->probeTarget().port, 5060U);
    write("/proc/sla/sla_voip_state", "33597632,50195");
    SmartLinkSelection::setVoipIpAddressAndPort();
    EXPECT_EQ(p->probeTarget().server, "192.168.0.1") << "once per call";
}

}  // namespace

// What the socket monitor keeps to itself.
class SlaTcpSocketMonitorPeer {
  public:
    explicit SlaTcpSocketMonitorPeer(SlaTcpSocketMonitor* monitor) : m_monitor(monitor) {}

    // Shows it a socket to a server, of which `length` bytes of tcp_info are known.
    void see(uint32_t uid, const char* server, uint16_t port, uint32_t sent,
             unsigned length = 232) NO_THREAD_SAFETY_ANALYSIS {
        inet_diag_msg msg{};
        msg.idiag_family = strchr(server, ':') == nullptr ? AF_INET : AF_INET6;
        msg.idiag_uid = uid;
        msg.id.idiag_dport = htons(port);
        inet_pton(msg.idiag_family, server, msg.id.idiag_dst);
        uint8_t info[240] = {};
        memcpy(info + 136, &sent, sizeof(sent));
        m_monitor->updateSocketStats({}, &msg, {info, length});
        m_monitor->selectServer();
    }

  private:
    SlaTcpSocketMonitor* const m_monitor;
};

TEST(SocketMonitor, ProbesTheServerThatTheGameTalksToMost) {
    Parameters* const p = Parameters::instance();
    const auto target = [p] {
        return p->probeTarget().server + ':' + std::to_string(p->probeTarget().port);
    };
    for (const char* uids : {"abc,10123", "0", "", "010123", "4294967296", "10123,10456"}) {
        p->setGamingUids(uids);
        p->populateGamingUids();
        SlaTcpSocketMonitor::finalize();
        SlaTcpSocketMonitorPeer monitor(SlaTcpSocketMonitor::instance());
        for (const char* server : {"127.0.0.2", "::1", "2001:db8::7", "::ffff:203.0.113.3"})
            monitor.see(10123, server, 5001, 900);
        for (const uint32_t uid : {0U, 10456U, 2147483647U, 4294967295U})
            monitor.see(uid, "203.0.113.3", 5000, 900);
        for (const uint16_t webPort : {uint16_t{80}, uint16_t{443}})
            monitor.see(10123, "203.0.113.1", webPort, 900);
        EXPECT_EQ(target(), "8.8.8.8:443") << uids;
    }
    SlaTcpSocketMonitorPeer monitor(SlaTcpSocketMonitor::instance());
    monitor.see(10123, "203.0.113.9", 7000, 300, 140);
    EXPECT_EQ(target(), "203.0.113.9:7000");
    monitor.see(10123, "203.0.113.7", 5000, 1);
    EXPECT_EQ(target(), "203.0.113.7:5000") << "the block before was too short for its count";
    monitor.see(10123, "203.0.113.9", 7000, 1);
    EXPECT_EQ(target(), "203.0.113.7:5000") << "a tie goes to the lowest port";
    SlaTcpSocketMonitor::finalize();
}

}  // namespace lnkd
