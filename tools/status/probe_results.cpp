// SPDX-License-Identifier: Apache-2.0
#include "status/probe_results.h"

#include <unistd.h>

#include <algorithm>

#include "logfile/log_event.h"
#include "logfile/log_line.h"
#include "logfile/log_tail.h"
#include "state/program.h"

namespace lnkd {

namespace {

// A probe of each of four links every 20 ms fills this in three seconds; usual ones in minutes.
constexpr size_t kTailSize = size_t{256} << 10U;  // bytes
constexpr char kSystemLog[] = "/system/bin/logcat";

Reading<std::string> logTail(const std::string& file, const std::optional<DaemonProcess>& daemon) {
    if (!file.empty()) {
        return readTail(file, kTailSize);
    }
    if (daemon.has_value() && !daemon->logPath.empty()) {
        Reading<std::string> tail = readTail(daemon->logPath, kTailSize);
        tail.problem += tail.known() ? "" : " (" + daemon->logName + ")";
        return tail;
    }
    if (access(kSystemLog, X_OK) != 0) {
        return {};
    }
    // The tags of all that takeEvent() goes by.
    const ProgramResult result = runProgram(
            {kSystemLog, "-d", "-v", "threadtime", "-t", "2000", "DVX-Lnkd-SlaPing:I",
             "DVX-Lnkd-Tcping:I", "DVX-Lnkd-SlaParameters:I", "DVX-Lnkd-SlaStatsImpl:I", "*:S"});
    if (!result.succeeded()) {
        return Reading<std::string>::failed("logcat: " + result.complaint());
    }
    return {result.output, ""};
}

void takeEvent(const LogEvent& event, std::map<std::string, int32_t>* answers,
               ProbeResults* results) {
    const std::string link(event.link);
    switch (event.kind) {
        case LogEventKind::kAnswer:
            (*answers)[link] = event.rttMs;
            break;
        case LogEventKind::kUnrated:
            if (answers->count(link) != 0) {
                results->links[link].rttMs = (*answers)[link];
            }
            break;
        case LogEventKind::kPass:
            results->links[link].rttMs = event.averageMs;
            results->links[link].hasFailed = false;
            break;
        case LogEventKind::kFail:
            results->links[link].rttMs.reset();
            results->links[link].hasFailed = true;
            break;
        case LogEventKind::kLevel:
            results->links[link].level = event.level;
            break;
        case LogEventKind::kTableAdded:
        case LogEventKind::kTableRemoved:
        case LogEventKind::kStatsRestart:
            results->choices = 0;
            break;
        case LogEventKind::kNoLink:
        case LogEventKind::kRefused:
        case LogEventKind::kSelected:
            ++results->choices;
            break;
        default:
            break;
    }
}

}  // namespace

Reading<ProbeResults> readProbeResults(const std::string& file,
                                       const std::optional<DaemonProcess>& daemon) {
    const Reading<std::string> tail = logTail(file, daemon);
    return {probeResultsOf(tail.value, daemon.has_value() ? daemon->pid : 0), tail.problem};
}

ProbeResults probeResultsOf(std::string_view log, pid_t pid) {
    ProbeResults results;
    std::map<std::string, int32_t> answers;  // the last of each link, ms
    while (!log.empty()) {
        const size_t lineEnd = std::min(log.find('\n'), log.size());
        LogLine line;
        if (parseLogLine(log.substr(0, lineEnd), &line) && (pid == 0 || line.pid == pid)) {
            takeEvent(parseLogEvent(line), &answers, &results);
        }
        log.remove_prefix(std::min(lineEnd + 1, log.size()));
    }
    return results;
}

}  // namespace lnkd
