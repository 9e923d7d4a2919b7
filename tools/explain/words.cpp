// SPDX-License-Identifier: Apache-2.0
#include "explain/words.h"

#include <cstdio>
#include <cstdlib>

#include "output/text.h"

namespace lnkd {

namespace {

std::string levelText(const LinkView& link) {
    if (link.level == 0) {
        return "not rated yet";
    }
    std::string text =
            link.level == kFailedLevel ? "failed" : "level " + std::to_string(link.level);
    text += link.averageMs > 0 ? ", " + std::to_string(link.averageMs) + " ms" : "";
    if (link.signalDbm != 0 && penaltyOf(link.signalDbm) > 0) {
        text += ", signal " + std::to_string(link.signalDbm) + " dBm, which adds " +
                std::to_string(penaltyOf(link.signalDbm)) + " ms";
    }
    return text;
}

std::string linkText(const LinkView& link) {
    return link.name + " (" + levelText(link) + ")";
}

std::string reasonOf(const Moment& moment) {
    switch (moment.why) {
        case Why::kFirst:
            return "first choice: " + linkText(moment.to);
        case Why::kGone:
            return "choice of " + linkText(moment.to) + ": the link before has gone";
        case Why::kFailed:
            return "switch to " + linkText(moment.to) + ": " + moment.from.name + " failed";
        case Why::kBetter:
            return "switch to " + linkText(moment.to) + ": better than " + linkText(moment.from);
        case Why::kTie:
            break;
    }
    return "switch to " + linkText(moment.to) + ": as good as " + linkText(moment.from) +
           ", and preferred";
}

std::string switchText(const Moment& moment) {
    std::string text = reasonOf(moment);
    if (moment.lastedMs > 0) {
        text += "; refused for " + durationText(moment.lastedMs) + " before";
    }
    if (moment.sockets > 0) {
        text += "; " + countOf(moment.sockets, "socket") + " of " + moment.text + " destroyed";
    }
    return text;
}

std::string refusalText(const Moment& moment) {
    std::string text = "refused " + countOf(moment.count, "time") + ": switch to " +
                       linkText(moment.to) + " from " + linkText(moment.from) +
                       ", the next was allowed " + durationText(moment.waitMs) + " later; ";
    switch (moment.ending) {
        case Ending::kSwitched:
            return text + "made after " + durationText(moment.lastedMs);
        case Ending::kRecovered:
            return text + "after " + durationText(moment.lastedMs) + " " + moment.from.name +
                   " was the best again";
        default:
            return text + "after " + durationText(moment.lastedMs) + " something else came";
    }
}

std::string sharesText(const Moment& moment) {
    std::string text;
    for (const ShareRecord::Link& link : moment.shares) {
        char share[32];
        snprintf(share, sizeof(share), " %.0f %%", static_cast<double>(link.share) * 100);
        text += (text.empty() ? "" : ", ") + link.name + share;
        text += moment.hasRates ? " of " + std::to_string(link.rate) + " kbit/s" : "";
    }
    return "shares: " + text + (moment.hasRates ? "" : " (rates not told)");
}

}  // namespace

std::string wordsOf(const Moment& moment) {
    switch (moment.kind) {
        case MomentKind::kDaemonStart:
            return "the daemon starts";
        case MomentKind::kDaemonEnd:
            return "the daemon ends";
        case MomentKind::kDaemonGone:
            return "the daemon has gone without a word, another one is there";
        case MomentKind::kGameStart:
            return printable("game of " + moment.text + " starts");
        case MomentKind::kGameEnd:
            return "the game ends";
        case MomentKind::kCallStart:
            return printable("call of " + moment.text + " starts");
        case MomentKind::kCallEnd:
            return "the call ends";
        case MomentKind::kRunning:
            return "a game or call runs that began before the log";
        case MomentKind::kLinkAdded:
            return moment.to.name + " comes";
        case MomentKind::kLinkRemoved:
            return moment.to.name + " goes";
        case MomentKind::kSwitch:
            return printable(switchText(moment));
        case MomentKind::kRefusal:
            return printable(refusalText(moment));
        case MomentKind::kRebuild:
            return sharesText(moment);
        case MomentKind::kSetBack:
            return "the clock is set back";
        case MomentKind::kGap:
            return "nothing was logged for " + durationText(moment.lastedMs);
    }
    return "";
}

}  // namespace lnkd
