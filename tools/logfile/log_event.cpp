// SPDX-License-Identifier: Apache-2.0
#include "logfile/log_event.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "core/text_values.h"

namespace lnkd {

namespace {

// Reads a text from left to right; once something is not there, it has failed for good.
class Scanner {
  public:
    explicit Scanner(std::string_view text) : m_rest(text) {}

    Scanner& literal(std::string_view expected) {
        m_ok = m_ok && m_rest.compare(0, expected.size(), expected) == 0;
        m_rest.remove_prefix(m_ok ? expected.size() : 0);
        return *this;
    }
    Scanner& number(int32_t* value) {
        *value = static_cast<int32_t>(integer(INT32_MIN, INT32_MAX));
        return *this;
    }
    Scanner& rate(uint32_t* value) {
        *value = static_cast<uint32_t>(integer(0, UINT32_MAX));
        return *this;
    }
    Scanner& share(float* value) {
        char digits[32] = {};
        const size_t length = m_rest.find_first_not_of("-+.0123456789einfa");
        const std::string_view word = m_rest.substr(0, length);
        m_ok = m_ok && !word.empty() && word.size() < sizeof(digits);
        if (m_ok) {
            memcpy(digits, word.data(), word.size());
            *value = strtof(digits, nullptr);
            m_rest.remove_prefix(word.size());
        }
        return *this;
    }
    // Up to `end`, or all that is left without one.
    Scanner& link(std::string_view* name, std::string_view end) {
        const size_t at = end.empty() ? m_rest.size() : m_rest.find(end);
        m_ok = m_ok && at != std::string_view::npos && isInterfaceName(m_rest.substr(0, at));
        if (m_ok) {
            *name = m_rest.substr(0, at);
            m_rest.remove_prefix(at + end.size());
        }
        return *this;
    }
    std::string_view rest() const { return m_rest; }
    bool ok() const { return m_ok; }

  private:
    int64_t integer(int64_t least, int64_t most) {
        const bool isNegative = m_rest.size() > 1 && m_rest[0] == '-';
        int64_t sum = 0;
        size_t i = isNegative ? 1 : 0;
        const size_t begin = i;
        for (; i < m_rest.size() && i < begin + 10 && m_rest[i] >= '0' && m_rest[i] <= '9'; ++i) {
            sum = sum * 10 + (m_rest[i] - '0');
        }
        const int64_t result = isNegative ? -sum : sum;
        m_ok = m_ok && i > begin && result >= least && result <= most;
        m_rest.remove_prefix(m_ok ? i : 0);
        return m_ok ? result : 0;
    }

    std::string_view m_rest;
    bool m_ok = true;
};

using Kind = LogEventKind;

// One known line: how it begins, and how the rest is read.
struct Form {
    std::string_view begin;
    Kind kind;
    bool (*read)(Scanner rest, LogEvent* event);
};

bool nothing(Scanner /*rest*/, LogEvent* /*event*/) {
    return true;
}

bool allText(Scanner rest, LogEvent* event) {
    event->text = rest.rest();
    while (!event->text.empty() && event->text.back() == ' ') {
        event->text.remove_suffix(1);
    }
    return true;
}

bool linkAndSuccess(Scanner rest, LogEvent* event) {
    return rest.link(&event->link, " success").ok();
}

bool message(Scanner rest, LogEvent* event) {
    int32_t length = 0;
    rest.number(&event->number).literal(", msg.length=").number(&length).literal(", msg.message=[");
    event->text = rest.rest();
    const size_t end = event->text.rfind(']');
    event->text = event->text.substr(0, end);
    return rest.ok();
}

bool pass(Scanner rest, LogEvent* event) {
    int32_t sizes = 0;
    return rest.link(&event->link, ") (short_average = ")
            .number(&event->shortMs)
            .literal(") (long_average = ")
            .number(&event->longMs)
            .literal(") (cacl = ")
            .number(&event->averageMs)
            .literal(") (raw = ")
            .number(&event->rttMs)
            .literal(") (longpreviousSpeed size= ")
            .number(&sizes)
            .literal(") (m_shortpreviousSpeed size= ")
            .number(&sizes)
            .literal(") (alpha_percent = ")
            .number(&event->alpha)
            .ok();
}

bool fail(Scanner rest, LogEvent* event) {
    int32_t unused = 0;
    return rest.link(&event->link, ") (calc = ")
            .number(&unused)
            .literal(")(old speed = ")
            .number(&unused)
            .literal(") (new prev = ")
            .number(&unused)
            .literal(") (alpha_percent = ")
            .number(&event->alpha)
            .ok();
}

bool linkAndLevel(Scanner rest, LogEvent* event) {
    return rest.link(&event->link, ") (networklevel ").number(&event->level).ok();
}

bool window(Scanner rest, LogEvent* event) {
    return rest.number(&event->elapsedMs).literal("  config delta ").number(&event->windowMs).ok();
}

bool linkAndBlank(Scanner rest, LogEvent* event) {
    return rest.link(&event->link, " ").ok();
}

bool number(Scanner rest, LogEvent* event) {
    return rest.number(&event->number).ok();
}

bool share(Scanner rest, LogEvent* event) {
    rest.share(&event->oldShare)
            .literal(", new ratio = ")
            .share(&event->share)
            .literal(" , LRE = ")
            .rate(&event->rate)
            .literal(" ,interface = ")
            .link(&event->link, " ");
    return rest.ok();
}

constexpr Form kForms[] = {
        // The choice and the probes, which are most of a log.
        {"caclaverageInterfaceSpeed: SLA_PING Ping Pass for RTT interface (", Kind::kPass, pass},
        {"caclInterfaceLevel: SLA_PING cacl Interface Level interface (", Kind::kLevel,
         [](Scanner rest, LogEvent* event) {
             return rest.link(&event->link, ") (network level = ").number(&event->level).ok();
         }},
        {"TCPing cacla rtt is ", Kind::kAnswer,
         [](Scanner rest, LogEvent* event) {
             return rest.number(&event->rttMs).literal(",device is ").link(&event->link, "").ok();
         }},
        {"getFastestInterface (interface ", Kind::kCandidate, linkAndLevel},
        {"getFastestInterface (best Interface ", Kind::kBest, linkAndLevel},
        {"calcInterface SLA_RTT Fastest Interface returned NULL", Kind::kNoLink, nothing},
        {"SLA_LINK time elapsed, ready for switch calc ", Kind::kWindowOver, window},
        {"SLA_LINK in cycle, but good to switch - calc ", Kind::kWindowOpen, window},
        {"SLA_LINK in cycle, switch not allowed-----*** calc ", Kind::kRefused, window},
        {"calcInterface SLA_RTT_SELECTED current =  ", Kind::kSelected,
         [](Scanner rest, LogEvent* event) {
             rest.link(&event->link, " ").literal(", prvious = ");
             return rest.ok() && allText(rest, event);
         }},
        {"calcInterface SLA_RTT_SELECTED perform switch ", Kind::kSwitch, linkAndBlank},
        {"SLA_LINK resetting hystWindow, current switch count = ", Kind::kSwitchDone, number},
        {"SLA_RTT_SELECTED  UID destroying sockets = ", Kind::kKillingUid, allText},
        {"setSpeed: SLA_PING Ping Miss for RTT interface (", Kind::kMiss,
         [](Scanner rest, LogEvent* event) {
             return rest.link(&event->link, ") num ping miss = (").number(&event->number).ok();
         }},
        {"setSpeed: SLA_PING Ping FAIL for RTT interface (", Kind::kFail, fail},
        {"SLA_PING Ping RTT interface (", Kind::kUnrated,
         [](Scanner rest, LogEvent* event) { return rest.link(&event->link, ")").ok(); }},
        {"m_slsInterfaceMap add ", Kind::kChoiceAdded, linkAndSuccess},
        {"m_slsInterfaceMap del ", Kind::kChoiceRemoved, linkAndSuccess},
        {"poll interface = ", Kind::kSignal,
         [](Scanner rest, LogEvent* event) {
             return rest.link(&event->link, ", rssi = ").number(&event->number).ok();
         }},
        {"VOIP UID destroying sockets = ", Kind::kKillingUid, allText},
        // Rules and shares.
        {"SEND SLA NDC COMMAND - PASS  ", Kind::kCommand, allText},
        {" SLA EXECNETD RESP ", Kind::kReply, allText},
        {"calcSlaRatios SLA_RATIO oldRatio = ", Kind::kShare, share},
        {"handle->interfaceRatio: ", Kind::kRule,
         [](Scanner rest, LogEvent* event) {
             return rest.share(&event->share)
                     .literal(" handle->interfaceName: ")
                     .link(&event->link, "")
                     .ok();
         }},
        {"m_slaInterfaceMap add ", Kind::kStatsRestart, nothing},
        {"m_slaInterfaceMap del ", Kind::kStatsRestart, nothing},
        // What others tell it.
        {"recv msg: msg.id=", Kind::kMessage, message},
        {"m_interfaceInfoMap add ", Kind::kTableAdded, linkAndSuccess},
        {"m_interfaceInfoMap del ", Kind::kTableRemoved, linkAndSuccess},
        {"addNewInterfacetoMap Added ", Kind::kTableAdded, linkAndBlank},
        // Its life.
        {"Lnkd (SLA+SLS) ", Kind::kStart, allText},
        {"Dvx disabled, starting cleanup...", Kind::kTeardown, nothing},
        {"Lnkd exiting", Kind::kExit, nothing},
        {"another lnkd runs here, this one ends", Kind::kSecondDaemon, nothing},
        // A replay's own.
        {"yardstick of ", Kind::kYardstick,
         [](Scanner rest, LogEvent* event) {
             return rest.link(&event->link, " ").literal("level ").number(&event->level).ok();
         }},
        {"replayed: ", Kind::kReplayed, allText},
        // Errors to the log that are how a switch goes; and one that counts sockets.
        {" SLA_GAMING destroying ", Kind::kOther, nothing},
        {"Destroyed ", Kind::kKilled, number},
};

}  // namespace

LogEvent parseLogEvent(const LogLine& line) {
    LogEvent event;
    for (const Form& form : kForms) {
        if (hasPrefix(line.text, form.begin)) {
            if (form.read(Scanner(line.text.substr(form.begin.size())), &event)) {
                event.kind = form.kind;
                return event;
            }
            return {};
        }
    }
    if (line.level == 'E' || line.level == 'W' || line.level == 'F') {
        event.kind = Kind::kFailure;
        allText(Scanner(line.text), &event);
    }
    return event;
}

}  // namespace lnkd
