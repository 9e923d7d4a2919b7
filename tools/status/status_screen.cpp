// SPDX-License-Identifier: Apache-2.0
#include "status/status_screen.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ctime>

#include "output/text.h"
#include "status/link_table.h"

namespace lnkd {

namespace {

constexpr size_t kLabelWidth = 14;

std::string clockText(int64_t seconds, int64_t now) {
    const time_t time = seconds;
    tm local{};
    localtime_r(&time, &local);
    char text[64];
    strftime(text, sizeof(text), now - seconds < 86400 ? "%H:%M:%S" : "%e %b %H:%M", &local);
    return text;
}

// A line "label  text", wrapped behind the label.
class Lines {
  public:
    explicit Lines(const Terminal& terminal) : m_terminal(terminal) {}

    void add(const std::string& label, Tone labelTone, const std::string& text) {
        std::string padded = label;
        padded.resize(std::max(kLabelWidth, label.size() + 1), ' ');
        m_text += m_terminal.in(labelTone, label) + padded.substr(label.size()) +
                  wrapped(printable(text), std::string(padded.size(), ' '), m_terminal.width()) +
                  '\n';
    }
    void add(const std::string& lines) { m_text += lines; }
    const std::string& text() const { return m_text; }

  private:
    const Terminal& m_terminal;
    std::string m_text;
};

std::string runningText(const DaemonProcess& daemon, int64_t now) {
    std::string text = "running";
    if (daemon.startedAt > 0) {
        text += " since " + clockText(daemon.startedAt, now) + " (" +
                ageText(std::max<int64_t>(now - daemon.startedAt, 0)) + ")";
    }
    text += ", process " + std::to_string(daemon.pid);
    if (daemon.residentKb > 0) {
        text += ", " + sizeText(static_cast<double>(daemon.residentKb) * 1024);
    }
    if (daemon.privateKb > 0) {
        text += " (" + sizeText(static_cast<double>(daemon.privateKb) * 1024) + " private)";
    }
    return text;
}

std::string leftoversText(const Observation& seen, const Picture& picture) {
    const std::string chains =
            picture.leftChains == 0 ? "" : countOf(picture.leftChains, "chain") + " and ";
    const bool isMeaningKnown = picture.leftChains > 0 && seen.filter.mangle.known();
    const char* const meaning = !isMeaningKnown ? ""
                                : picture.isHooked
                                        ? "Connections are steered on, by the shares of then. "
                                        : "They are not hooked in: nothing is steered. ";
    return "not running; one that was killed left " + chains +
           countOf(picture.leftRules, "policy rule") + ". " + meaning +
           "\"lnkdctl clean\" removes them; a new lnkd takes them over.";
}

void addDaemon(const Observation& seen, const Picture& picture, Lines* lines) {
    switch (picture.daemonState) {
        case DaemonState::kRunning:
            lines->add("lnkd", Tone::kGood, runningText(*picture.daemon, seen.wallMs / 1000));
            break;
        case DaemonState::kStopped:
            lines->add("lnkd", Tone::kBad,
                       "not running, and nothing of it is left: all traffic takes the default "
                       "route");
            break;
        case DaemonState::kDisabled:
            lines->add("lnkd", Tone::kWarning,
                       "disabled: process " + std::to_string(seen.idleDaemon) +
                               " idles, its rules are down (vendor.sla.enabled); it works again "
                               "when it is restarted");
            break;
        case DaemonState::kLeftovers:
            lines->add("lnkd", Tone::kBad, leftoversText(seen, picture));
            break;
        case DaemonState::kUnknown:
            lines->add("lnkd", Tone::kWarning,
                       std::string("cannot tell whether it runs") +
                               (geteuid() == 0 ? "" : "; only root can"));
            break;
    }
}

std::string percent(double share) {
    return std::to_string(std::lround(share * 100)) + " %";
}

void addSelection(const Picture& picture, Lines* lines) {
    if (!picture.isSelecting) {
        lines->add("game or call", Tone::kHeading, "none");
        return;
    }
    const std::string uids = listText(picture.gaming.value_or(std::vector<std::string>{}), "none");
    lines->add("game or call", Tone::kHeading,
               "UID " + uids + ": " +
                       (picture.selected.empty() ? "no link chosen yet"
                                                 : "steered to " + picture.selected));
}

void addLists(const Picture& picture, Lines* lines) {
    if (picture.entry.empty()) {
        lines->add("applications", Tone::kHeading, "none on any list, so none is steered");
        return;
    }
    const auto add = [lines](const char* label, const UidList& list, const char* meaning) {
        if (list.has_value()) {
            lines->add(label, Tone::kHeading, listText(*list, "nobody") + meaning);
        }
    };
    lines->add("applications", Tone::kHeading,
               "UID " + listText(picture.entry, "") + ": their web connections are spread");
    add("whitelist", picture.whitelist, ": may use cellular links");
    add("second Wi-Fi", picture.secondWifi, ": may use the second Wi-Fi");
}

void addLinks(const Picture& picture, const Terminal& terminal, Lines* lines) {
    if (picture.links.empty()) {
        lines->add("links", Tone::kHeading, "none: lnkd has been told of none");
        return;
    }
    lines->add("\n" + linkTable(picture, terminal));
    if (picture.defaultShare.has_value() && std::lround(*picture.defaultShare * 100) > 0) {
        lines->add("\nOf new web connections, " + percent(*picture.defaultShare) +
                   " keep the default route.\n");
    }
}

}  // namespace

std::string statusScreen(const Observation& seen, const Picture& picture,
                         const std::vector<Warning>& warnings, const Terminal& terminal) {
    Lines lines(terminal);
    addDaemon(seen, picture, &lines);
    if (picture.daemonState == DaemonState::kRunning || !picture.links.empty()) {
        if (seen.filter.mangle.known()) {
            addSelection(picture, &lines);
            addLists(picture, &lines);
            addLinks(picture, terminal, &lines);
        } else {
            for (const char* const label : {"game or call", "applications", "links"}) {
                lines.add(label, Tone::kHeading, "not known");
            }
        }
    }
    if (!warnings.empty() || !seen.problems().empty()) {
        lines.add("\n");
    }
    for (const Warning& warning : warnings) {
        lines.add("warning", Tone::kWarning, warning.text);
    }
    for (const std::string& problem : seen.problems()) {
        lines.add("not read", Tone::kWarning, problem);
    }
    if (warnings.empty() && seen.problems().empty() &&
        picture.daemonState == DaemonState::kRunning) {
        lines.add("\n");
        lines.add("warnings", Tone::kHeading, "none");
    }
    return lines.text();
}

}  // namespace lnkd
