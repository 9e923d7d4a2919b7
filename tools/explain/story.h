// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "explain/failures.h"
#include "explain/series.h"
#include "logfile/log_clock.h"
#include "logfile/share_record.h"

namespace lnkd {

// A level from which a link is good: a round-trip time below about 200 ms.
constexpr int32_t kGoodLevel = 8;
constexpr int32_t kFailedLevel = 1;

// A link as it was at a moment.
struct LinkView {
    std::string name;       // empty: none
    int32_t level = 0;      // 0: not rated
    int32_t averageMs = 0;  // -1: failed; 0: not known
    int32_t signalDbm = 0;  // 0: not known
};

enum class MomentKind {
    kDaemonStart,
    kDaemonEnd,   // told by itself
    kDaemonGone,  // another one came without a word of it
    kGameStart,   // text: UIDs
    kGameEnd,
    kCallStart,  // text: UID
    kCallEnd,
    kRunning,      // a game or call that began before the log
    kLinkAdded,    // to
    kLinkRemoved,  // to
    kSwitch,       // from, to, why, text (UIDs), sockets, lastedMs: how long it was refused
    kRefusal,      // from, to, count of choices, lastedMs, waitMs, ending
    kRebuild,      // shares, hasRates
    kSetBack,      // the clock
    kGap,          // lastedMs without a line of the daemon
};

enum class Why { kFirst, kGone, kFailed, kBetter, kTie };
enum class Ending { kOpen, kSwitched, kRecovered, kOther };

// One thing that happened. Which fields mean something is said above.
struct Moment {
    MomentKind kind;
    LogTime at;
    LinkView from = {};
    LinkView to = {};
    std::string text = {};
    Why why = Why::kFirst;
    Ending ending = Ending::kOpen;
    int64_t sockets = 0;
    int32_t count = 0;
    int64_t lastedMs = 0;
    int64_t waitMs = 0;  // from its beginning until the window would be over
    std::vector<ShareRecord::Link> shares = {};
    bool hasRates = false;
};

// How often and for how long something was so.
struct Total {
    int64_t count = 0;
    int64_t ms = 0;
    void add(int64_t lastedMs) {
        ++count;
        ms += lastedMs;
    }
};

// The figures of one link over the time of the log.
struct LinkCurves {
    Series rtt;      // ms, of probes that were answered
    Series misses;   // 1 for each
    Series average;  // ms
    Series level;
    Series share;  // 0 to 1
    Series rate;   // kbit/s
};

// What a log tells.
struct Story {
    LogTime begin;
    LogTime end;
    int64_t lines = 0;
    int64_t daemonLines = 0;
    int64_t foreignLines = 0;  // of a form that is no log line's, or cut
    int64_t runs = 0;          // of the daemon
    std::vector<std::string> missing;
    std::vector<Moment> moments;  // in order of time
    int64_t momentsLeftOut = 0;
    size_t keptShares = 0;  // in the moments
    std::vector<Failure> failures;
    int64_t expectedFailures = 0;  // while the daemon sets up and takes down its rules

    Total selecting;  // games and calls, and the time in which choices were made
    int64_t choices = 0;
    int64_t switches = 0;  // without first choices
    int64_t sockets = 0;   // destroyed by switches
    Total delays;          // refusals that ended with the switch
    Total savings;         // refusals after which the present link was the best again
    Total otherRefusals;
    int64_t refusedChoices = 0;
    int64_t worseMs = 0;  // on a link of a lower level than another's
    Total notGood;        // stretches without a good link; the longest stands below
    int64_t longestNotGoodMs = 0;
    LogTime longestNotGoodAt;
    int64_t passes = 0;  // of the shares that the log tells the rates of
    int64_t rebuilds = 0;
    int64_t rebuildsWithoutRates = 0;
    int64_t incompleteChoices = 0;

    int32_t alpha = -1;  // tunables in force, as the log ends; -1: not told
    int32_t windowMs = -1;
    std::map<std::string, LinkCurves> curves;
    std::string replayed;  // what a replay found, when this is its log
};

// The curves of a link; null when a log names more links than any daemon has.
LinkCurves* curvesOf(Story* story, const std::string& link);

// The texts of a moment and of a failure, in bytes: a log may hold anything.
constexpr size_t kLongestText = 200;
constexpr size_t kLongestFailure = 1000;

// A text of at most so many bytes; one that was longer ends in dots.
std::string shortened(std::string_view text, size_t most);

// Adds a moment, unless there are more than anybody would read.
void addMoment(Story* story, Moment moment);

// What a signal costs, in ms that the daemon adds to each time measured on the link.
int32_t penaltyOf(int32_t signalDbm);

}  // namespace lnkd
