// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "explain/story_reader.h"
#include "explain/tunables.h"
#include "explain/words.h"
#include "selection/rssi_state_monitor.h"

namespace lnkd {

namespace {

// A log, written line by line.
class Log {
  public:
    void line(int seconds, const std::string& text, char level = 'I', int pid = 20) {
        char prefix[80];
        snprintf(prefix, sizeof(prefix),
                 "11-25 09:%02d:%02d.000 %5d %5d %c DVX-Lnkd-SlaPing: ", seconds / 60, seconds % 60,
                 pid, pid, level);
        m_reader.take(prefix + text);
    }
    void message(int seconds, int id, const std::string& text) {
        line(seconds, "recv msg: msg.id=" + std::to_string(id) + ", msg.length=1, msg.message=[" +
                              text + "]");
    }
    // A choice between wlan0 and rmnet_data0, which is refused, stays or switches.
    void choice(int seconds, int wifi, int cellular, const std::string& previous,
                const std::string& selected) {
        const auto level = [](const char* link, int value) {
            return std::string(link) + ") (networklevel " + std::to_string(value) + ")";
        };
        line(seconds, "getFastestInterface (interface " + level("rmnet_data0", cellular));
        line(seconds, "getFastestInterface (interface " + level("wlan0", wifi));
        line(seconds,
             "getFastestInterface (best Interface " +
                     (wifi > cellular ? level("wlan0", wifi) : level("rmnet_data0", cellular)));
        if (selected.empty()) {
            line(seconds,
                 "SLA_LINK in cycle, switch not allowed-----*** calc 1000  config delta 9000");
            return;
        }
        line(seconds, "SLA_LINK time elapsed, ready for switch calc 9500  config delta 9000");
        line(seconds,
             "calcInterface SLA_RTT_SELECTED current =  " + selected + " , prvious = " + previous);
        if (selected != previous) {
            line(seconds, "calcInterface SLA_RTT_SELECTED perform switch " + selected + " ");
            line(seconds, "SLA_RTT_SELECTED  UID destroying sockets = 10123");
            line(seconds, "Destroyed 2 sockets for UID");
            line(seconds, "SLA_LINK resetting hystWindow, current switch count = 0-----<*>");
        }
    }
    Story story() { return m_reader.finish(); }
    void foreign(const std::string& text) { m_reader.take(text); }

  private:
    StoryReader m_reader;
};

TEST(Story, TellsWhatRefusalsCostAndForHowLongNoLinkWasGood) {
    Log log;
    log.line(0, "Lnkd (SLA+SLS) 3.0.4.5 starting daemon");
    log.message(1, 5, "10123");
    log.choice(2, 11, 10, "NULL", "wlan0");
    log.choice(3, 9, 10, "", "");  // passes by itself
    log.choice(4, 9, 10, "", "");
    log.choice(6, 11, 10, "wlan0", "wlan0");
    log.choice(10, 7, 10, "", "");  // and one that comes anyway
    log.choice(15, 7, 10, "wlan0", "rmnet_data0");
    log.choice(16, 1, 4, "rmnet_data0", "rmnet_data0");
    log.choice(17, 1, 4, "rmnet_data0", "rmnet_data0");
    log.choice(500, 1, 10, "rmnet_data0", "rmnet_data0");  // a hole counts as nothing
    log.message(501, 6, "");
    log.choice(502, 1, 10, "rmnet_data0", "rmnet_data0");  // on the way to its end
    const Story story = log.story();
    EXPECT_EQ(story.switches, 1);
    EXPECT_EQ(story.sockets, 4);
    EXPECT_EQ(story.refusedChoices, 3);
    EXPECT_EQ(std::pair(story.savings.count, story.savings.ms),
              std::pair(int64_t{1}, int64_t{3000}));
    EXPECT_EQ(std::pair(story.delays.count, story.delays.ms), std::pair(int64_t{1}, int64_t{5000}));
    EXPECT_EQ(story.worseMs, 8000);
    EXPECT_EQ(std::pair(story.notGood.count, story.longestNotGoodMs),
              std::pair(int64_t{1}, int64_t{5000}))
            << "from 10 s on, until the switch";
    EXPECT_EQ(story.selecting.ms, 16000);
    EXPECT_TRUE(story.missing.empty());
    std::vector<std::string> words;
    for (const Moment& moment : story.moments)
        words.push_back(wordsOf(moment));
    EXPECT_EQ(words,
              (std::vector<std::string>{
                      "the daemon starts", "game of 10123 starts",
                      "first choice: wlan0 (level 11); 2 sockets of 10123 destroyed",
                      "refused 2 times: switch to rmnet_data0 (level 10) from wlan0 (level 9), the "
                      "next was allowed 8.0 s later; after 3.0 s wlan0 was the best again",
                      "refused 1 time: switch to rmnet_data0 (level 10) from wlan0 (level 7), the "
                      "next was allowed 8.0 s later; made after 5.0 s",
                      "switch to rmnet_data0 (level 10): better than wlan0 (level 7); refused for "
                      "5.0 s before; 2 sockets of 10123 destroyed",
                      "nothing was logged for 8 min 03 s", "the game ends"}));
}

TEST(Story, SaysWhatIsMissingAndPutsTogetherWhatRepeats) {
    Log log;
    log.foreign("--------- beginning of main");
    log.choice(1, 9, 10, "", "");  // of a link that is not known yet
    log.choice(2, 1, 10, "wlan0", "rmnet_data0");
    for (int i = 3; i < 10; ++i)
        log.line(i, "retrying_poll : " + std::to_string(i) + " on wlan" + std::to_string(i % 2),
                 'E');
    log.line(20, "Lnkd (SLA+SLS) 3.0.4.5 starting daemon", 'I', 30);
    log.line(21, "another lnkd runs here, this one ends", 'E', 31);
    log.line(21, "read lnkd conf file failed!", 'E', 32);  // a tool's
    log.line(22, "\033[31m", 'E', 30);
    const Story story = log.story();
    EXPECT_EQ(story.runs, 2);
    EXPECT_EQ(story.foreignLines, 1);
    ASSERT_EQ(story.missing.size(), 1U);
    EXPECT_EQ(story.missing[0].find("the beginning of a run"), 0U) << story.missing[0];
    EXPECT_EQ(story.moments[0].kind, MomentKind::kRunning);
    EXPECT_EQ(story.moments[1].why, Why::kFailed);
    EXPECT_EQ(story.moments[2].kind, MomentKind::kDaemonGone);
    ASSERT_EQ(story.failures.size(), 4U);
    EXPECT_EQ(std::pair(story.failures[0].count, story.failures[0].text),
              std::pair(int64_t{4}, std::string("retrying_poll : 3 on wlan1")));
    EXPECT_EQ(story.failures[0].last.timeOfDay(), "09:00:09.000");
    EXPECT_EQ(screenOf(story, "x", true, Terminal()).find('\033'), std::string::npos);
}

TEST(Story, StaysSmallAndDefinedWhateverALogSays) {
    Log log;
    log.line(0, "Lnkd (SLA+SLS) 3.0.4.5 starting daemon");
    log.message(1, 5, std::string(8000, '1'));
    log.line(2, "getFastestInterface (interface wlan0) (networklevel 4294967295)");
    log.choice(2, 11, 10, "NULL", "wlan0");
    log.line(3, "getFastestInterface (interface wlan0) (networklevel 9)");
    log.line(3, "getFastestInterface (best Interface wlan0) (networklevel 9)");
    log.line(3, "SLA_LINK time elapsed, ready for switch calc 9500  config delta 9000");
    log.line(3, "calcInterface SLA_RTT_SELECTED current =  wlan0 , prvious = rmnet_data0");
    log.line(3, "calcInterface SLA_RTT_SELECTED perform switch wlan0 ");
    for (int i = 0; i < 1000; ++i)
        log.line(3, "SLA_RTT_SELECTED  UID destroying sockets = " + std::string(1000, '2'));
    for (const char* count : {"2147483647", "2147483647", "-5"})
        log.line(3, "Destroyed " + std::string(count) + " sockets for UID");
    log.line(3, "SLA_LINK resetting hystWindow, current switch count = 0-----<*>");
    log.choice(4, 9, 10, "", "");
    log.line(5, "getFastestInterface (interface wlan0) (networklevel 9)");
    log.line(5, "getFastestInterface (best Interface rmnet_data0) (networklevel 10)");
    log.line(5,
             "SLA_LINK in cycle, switch not allowed-----*** calc -2147483648  config delta "
             "2147483647");
    log.line(5, std::string(8000, 'x'), 'E');
    for (int i = 0; i < 3000; ++i)
        log.line(6, "recv msg: msg.id=0, msg.length=1, msg.message=[]", 'I', 100 + i % 3);
    const Story story = log.story();
    EXPECT_EQ(story.sockets, 2 + 2 * int64_t{2147483647});
    EXPECT_EQ(story.missing[0].find("the beginnings of 3000 runs of the daemon, the first from "
                                    "11-25 09:00:06"),
              0U)
            << story.missing[0];
    EXPECT_EQ(story.failures.back().text.size(), kLongestFailure + 3);
    EXPECT_EQ(story.moments[1].text, std::string(kLongestText, '1') + "...");
}

TEST(Story, KnowsWhatTheDaemonAddsForASignal) {
    for (int dbm = -140; dbm <= 0; ++dbm)
        EXPECT_EQ(penaltyOf(dbm), RssiStateMonitor::penaltyFor(dbm)) << dbm;
}

TEST(Series, StaysSmallAndKeepsItsExtremes) {
    Series series;
    for (int i = 0; i < 1000000; ++i)
        series.add(int64_t{i} * 100, i == 123456 ? 900 : i == 654321 ? -5 : 10);
    EXPECT_LE(series.points().size(), Series::kMostPoints);
    EXPECT_GE(series.points().size(), Series::kMostPoints / 2);
    double low = 10, high = 10;
    for (const Series::Point& point : series.points()) {
        low = std::min(low, point.low);
        high = std::max(high, point.high);
    }
    EXPECT_EQ(std::pair(low, high), std::pair(-5.0, 900.0));
}

TEST(Tunables, AreTakenOrRefusedWithTheReason) {
    std::vector<std::string> words;
    std::string error;
    EXPECT_TRUE(parseTunables("t_hyst_s=05,alpha_percent=30", &words, &error));
    EXPECT_EQ(words, (std::vector<std::string>{"t_hyst_s=5", "alpha_percent=30"}));
    for (const auto& [text, part] : {std::pair("", "names no tunable"),
                                     {"alpha_percnt=1", "did you mean alpha_percent?"},
                                     {"alpha_percent", "0 to 100"},
                                     {"alpha_percent=101", "0 to 100"},
                                     {"n_hyst=-1", "\"-1\""},
                                     {"n_hyst=99999999999", "not a value of n_hyst"},
                                     {"ping_interval_ms=5", "cannot be replayed, probes"}}) {
        EXPECT_FALSE(parseTunables(text, &words, &error)) << text;
        EXPECT_NE(error.find(part), std::string::npos) << error;
        words.clear();
    }
    Sweep sweep;
    EXPECT_TRUE(parseSweep("alpha_percent=0..100/40", &sweep, &error));
    EXPECT_EQ(sweep.values, (std::vector<int>{0, 40, 80}));
    for (const char* text :
         {"alpha_percent=5", "alpha_percent=9..1", "alpha_percent=0..9/0", "n_hyst=0..1001",
          "alpha_percent=1/2..3", "alpha_percent=..", "x=1..2"})
        EXPECT_FALSE(parseSweep(text, &sweep, &error)) << text;
}

}  // namespace

}  // namespace lnkd
