// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

#include "logfile/log_line.h"

namespace lnkd {

// What a line of the daemon tells.
enum class LogEventKind {
    kOther,          // nothing that matters here
    kStart,          // the daemon's first line
    kTeardown,       // it takes down its rules
    kExit,           // its last line
    kSecondDaemon,   // one that ended at once, because another runs
    kMessage,        // a control message: number, text
    kTableAdded,     // link: is in the interface table
    kTableRemoved,   // link
    kStatsRestart,   // the statistics of all links start anew
    kChoiceAdded,    // link: takes part in a game or call that runs
    kChoiceRemoved,  // link
    kAnswer,         // link, rttMs: a probe was answered
    kMiss,           // link, number: misses that are open
    kUnrated,        // link: a result with min_ping_times 1
    kPass,           // link, shortMs, longMs, averageMs, rttMs (the sample), alpha
    kFail,           // link, alpha: too many misses
    kLevel,          // link, level: rated after a result
    kCandidate,      // link, level: looked at by a choice
    kBest,           // link, level: what the choice would take
    kNoLink,         // the choice found none
    kWindowOver,     // elapsedMs, windowMs: a switch is allowed again
    kWindowOpen,     // elapsedMs, windowMs: a switch is still allowed
    kRefused,        // elapsedMs, windowMs
    kSelected,       // link, text: the one before, or NULL
    kSwitch,         // link: the rules are about to be changed
    kSwitchDone,     // number: of switches in the window before this one
    kKillingUid,     // text: the sockets of this UID are about to be destroyed
    kKilled,         // number of sockets, of one protocol
    kSignal,         // link, number: dBm
    kShare,          // link, oldShare, share, rate
    kRule,           // link, share: in a rebuild of the ratio rules
    kCommand,        // text
    kReply,          // text: what a command said
    kYardstick,      // link, level: as a replay of the log rates it, whatever its tunables
    kReplayed,       // text: what a replay found at its end
    kFailure,        // any other warning or error, text
};

// Texts are parts of the line. Which fields mean something is said above.
struct LogEvent {
    LogEventKind kind = LogEventKind::kOther;
    std::string_view link;
    std::string_view text;
    int32_t number = 0;
    int32_t rttMs = 0;
    int32_t shortMs = 0;
    int32_t longMs = 0;
    int32_t averageMs = 0;
    int32_t alpha = 0;
    int32_t level = 0;
    int32_t elapsedMs = 0;
    int32_t windowMs = 0;
    float oldShare = 0;
    float share = 0;
    uint32_t rate = 0;  // kbit/s
};

// What a line of the daemon says. A line that begins as a known one and goes on as another is of no
// daemon that is known here: kOther.
LogEvent parseLogEvent(const LogLine& line);

}  // namespace lnkd
