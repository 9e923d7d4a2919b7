// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "logfile/log_clock.h"
#include "logfile/log_event.h"
#include "logfile/log_input.h"

namespace lnkd {

namespace {

std::string file(const std::string& content) {
    std::string path = testing::TempDir() + "lnkd_log_XXXXXX";
    close(mkstemp(path.data()));
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

std::vector<std::string> linesOf(const std::string& path, LogInput* input) {
    std::vector<std::string> lines;
    std::string_view line;
    if (input->open(path))
        while (input->next(&line))
            lines.emplace_back(line);
    unlink(path.c_str());
    return lines;
}

TEST(LogLines, AreToldFromForeignOnes) {
    for (const char* foreign :
         {"", "--------- beginning of main", "11-25 09:51:07.078",
          "13-25 09:51:07.078    21   140 I DVX-Lnkd-SlaPing: month",
          "11-25 24:51:07.078    21   140 I DVX-Lnkd-SlaPing: hour",
          "11-25 09:51:07.078    21 I DVX-Lnkd-SlaPing: no thread",
          "11-25 09:51:07.078 99999999999   140 I DVX-Lnkd-SlaPing: too large",
          "11-25 09:51:07.078    21   140 I no end of a tag",
          "11-25T09:51:07.078    21   140 I DVX-Lnkd-SlaPing: separator"}) {
        LogLine line;
        EXPECT_FALSE(parseLogLine(foreign, &line)) << foreign;
    }
    LogLine line;
    ASSERT_TRUE(parseLogLine("02-29 23:59:60.999 12345 67890 E Tag     :  text: more\r", &line));
    EXPECT_EQ(line.ofDayMs, 86400999);
    EXPECT_EQ(std::pair(line.pid, line.tid), std::pair(12345, 67890));
    EXPECT_EQ(line.tag, "Tag");
    EXPECT_EQ(line.text, " text: more");
    EXPECT_FALSE(isDaemonLine(line));
}

TEST(LogClock, GoesOnOverYearsDaysAndSetBacks) {
    struct Case {
        int32_t month, day, ofDayMs;
        int64_t ms, wallStepMs;
        int32_t setBacks;
    };
    constexpr int32_t kLast = 86399999, kHour = 3600000;
    LogClock clock;
    int64_t wall = 0;
    for (const Case& c : {Case{12, 31, kLast, 0, 0, 0},
                          {1, 1, 0, 1, 1, 0},
                          {12, 31, kLast, 1, -1, 0},  // another thread's, of the year before
                          {1, 1, 5000, 5001, 5001, 0},
                          {1, 1, 4990, 5001, -10, 0},  // another thread's
                          {1, 1, 5000, 5001, 10, 0},
                          {1, 1, 2000, 5001, -3000, 1},  // set back
                          {1, 1, 2500, 5501, 500, 1},
                          {2, 28, kLast, 5501, 58 * 86400000LL + kLast - 2500, 1},  // and ahead
                          {3, 1, 0, 5502, 1, 1},        // a year without the 29th
                          {2, 28, kLast, 5502, -1, 1},  // another thread's, of the day before
                          {3, 1, kHour, 5502 + kHour, kHour + 1, 1}}) {
        LogLine line;
        std::tie(line.month, line.day, line.ofDayMs) = std::tie(c.month, c.day, c.ofDayMs);
        const LogTime time = clock.timeOf(line);
        EXPECT_EQ(time.ms, c.ms) << time.stamp();
        EXPECT_EQ(wall == 0 ? 0 : time.wallMs - wall, c.wallStepMs) << time.stamp();
        EXPECT_EQ(clock.setBacks(), c.setBacks) << time.stamp();
        wall = time.wallMs;
    }
}

TEST(LogClock, ComesBackFromANewYearThatWasSetBack) {
    LogClock clock;
    int64_t last = 0;
    for (const auto& [month, hour] : {std::pair(12, 23), {1, 0}, {12, 23}, {1, 0}, {1, 1}}) {
        LogLine line;
        line.month = month;
        line.day = month == 12 ? 31 : 1;
        line.ofDayMs = hour * 3600000;
        last = clock.timeOf(line).wallMs;
    }
    EXPECT_EQ(clock.setBacks(), 1);
    EXPECT_EQ(last, (366LL * 24 + 1) * 3600000) << "of the year after the first line's";
}

TEST(LogInput, GivesLinesOfPlainAndPackedFilesAndSaysWhatIsBroken) {
    std::string content = "first\n\n" + std::string(100000, 'x') + "\nlast, without an end";
    const std::vector<std::string> lines = {"first", "", std::string(LogInput::kLongestLine, 'x'),
                                            "last, without an end"};
    LogInput plain;
    EXPECT_EQ(linesOf(file(content), &plain), lines);
    EXPECT_EQ(plain.cutLines(), 1U);

    const std::string unpacked = file(content);
    ASSERT_EQ(std::system(("gzip -f " + unpacked).c_str()), 0);
    std::ifstream stream(unpacked + ".gz", std::ios::binary);
    const std::string packed(std::istreambuf_iterator<char>{stream}, {});
    LogInput zipped;
    EXPECT_EQ(linesOf(unpacked + ".gz", &zipped), lines);
    EXPECT_EQ(zipped.error(), "");
    LogInput broken;
    linesOf(file(packed.substr(0, packed.size() - 4)), &broken);
    EXPECT_EQ(broken.error(), "gzip could not unpack all of it");

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], packed.data(), packed.size()), static_cast<ssize_t>(packed.size()));
    close(ends[1]);
    ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    LogInput piped;
    EXPECT_EQ(linesOf("-", &piped), lines) << "a stream that cannot be read again";

    // As much as gzip reads at once, so that it ends while the stream goes on.
    const std::string damaged = packed.substr(0, 2) + std::string(256 * 1024 - 2, 'x');
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_GE(fcntl(ends[1], F_SETPIPE_SZ, damaged.size()), 0);
    ASSERT_EQ(write(ends[1], damaged.data(), damaged.size()), static_cast<ssize_t>(damaged.size()));
    ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    LogInput endless;
    EXPECT_EQ(linesOf("-", &endless), std::vector<std::string>());
    EXPECT_EQ(endless.error(), "gzip could not unpack all of it");
    close(ends[1]);
    LogInput missing;
    EXPECT_FALSE(missing.open("/nowhere"));
    EXPECT_EQ(missing.error(), "No such file or directory");
}

LogEvent eventOf(const std::string& tagAndText, char level = 'I') {
    static std::string text;
    text = std::string("11-25 09:51:07.078    21   140 ") + level + " DVX-Lnkd-" + tagAndText;
    LogLine line;
    return parseLogLine(text, &line) ? parseLogEvent(line) : LogEvent{};
}

TEST(LogEvents, AreReadWholeOrNotAtAll) {
    const std::string pass =
            "SlaPing: caclaverageInterfaceSpeed: SLA_PING Ping Pass for RTT interface (wlan0) "
            "(short_average = 21) (long_average = 20) (cacl = 22) (raw = -23) "
            "(longpreviousSpeed size= 10) (m_shortpreviousSpeed size= 3) (alpha_percent = 50)";
    const LogEvent event = eventOf(pass);
    ASSERT_EQ(event.kind, LogEventKind::kPass);
    EXPECT_EQ(event.link, "wlan0");
    EXPECT_EQ((std::vector{event.shortMs, event.longMs, event.averageMs, event.rttMs, event.alpha}),
              (std::vector{21, 20, 22, -23, 50}));
    const LogEvent share = eventOf(
            "SlaStatsImpl: calcSlaRatios SLA_RATIO oldRatio = 0.250000, new ratio = 1.000000 , LRE "
            "= 4294967295 ,interface = rmnet_data0 , ");
    EXPECT_EQ(share.kind, LogEventKind::kShare);
    EXPECT_EQ(share.rate, 4294967295U);
    EXPECT_EQ(share.link, "rmnet_data0");
    const LogEvent message =
            eventOf("LnkdSocket-Server: recv msg: msg.id=5, msg.length=8, msg.message=[10123]5]");
    EXPECT_EQ(message.kind, LogEventKind::kMessage);
    EXPECT_EQ(message.text, "10123]5");
    for (const std::string& other :
         {pass.substr(0, pass.size() - 3), std::string("SlaPing: getFastestInterface (interface "),
          std::string("SlaPing: getFastestInterface (interface ../x) (networklevel 1)"),
          std::string("SlaPing: SLA_LINK in cycle, but good to switch - calc 99999999999 "),
          std::string("SlaStatsImpl: calcSlaRatios SLA_RATIO oldRatio = , new ratio = 1")})
        EXPECT_EQ(eventOf(other).kind, LogEventKind::kOther) << other;
    EXPECT_EQ(eventOf("Tcping: connect failed of client,device is wlan0!", 'E').kind,
              LogEventKind::kFailure);
}

}  // namespace

}  // namespace lnkd
