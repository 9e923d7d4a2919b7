// SPDX-License-Identifier: Apache-2.0
#include "doctor/doctor_report.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "output/json.h"
#include "output/text.h"

namespace lnkd {

namespace {

constexpr size_t kStateColumns = 9;  // of "not known"

const char* nameOf(NeedState state) {
    switch (state) {
        case NeedState::kOk:
            return "ok";
        case NeedState::kMissing:
            return "missing";
        case NeedState::kUnknown:
            break;
    }
    return "unknown";
}

size_t count(const Needs& needs, NeedState state, bool isOptional) {
    return static_cast<size_t>(
            std::count_if(needs.begin(), needs.end(), [state, isOptional](const Need& need) {
                return need.state == state && need.isOptional == isOptional;
            }));
}

// "Needed: 1 missing, 2 not known. Optional: all there."
std::string verdictOn(const Needs& needs, bool isOptional, const Terminal& terminal) {
    const size_t missing = count(needs, NeedState::kMissing, isOptional);
    const size_t unknown = count(needs, NeedState::kUnknown, isOptional);
    std::string text = isOptional ? "Optional: " : "Needed: ";
    if (missing > 0) {
        text += terminal.in(isOptional ? Tone::kWarning : Tone::kBad,
                            std::to_string(missing) + " missing");
    }
    if (unknown > 0) {
        text += (missing > 0 ? ", " : "") +
                terminal.in(Tone::kWarning, std::to_string(unknown) + " not known");
    }
    if (missing + unknown == 0) {
        text += terminal.in(Tone::kGood, "all there");
    }
    return text + '.';
}

// The lines of the screen, in three columns: subject, state, and what is to be said.
class Screen {
  public:
    Screen(const Needs& needs, const Terminal& terminal) : m_terminal(terminal) {
        for (const Need& need : needs) {
            m_subjectColumns = std::max(m_subjectColumns, columnsOf(need.subject));
        }
    }

    void met(const std::string& subject, const std::string& text) {
        line(subject, "ok", Tone::kGood, text);
    }

    // What could not be tried, for one reason.
    void unknown(const std::string& subject, const std::string& text) {
        line(subject, "not known", Tone::kWarning, text);
    }

    void missing(const Need& need) {
        line(need.subject, "missing", need.isOptional ? Tone::kWarning : Tone::kBad, need.found);
        remark((need.isOptional ? "optional; without it " : "without it ") + need.without);
        remark("do: " + need.remedy);
    }

    const std::string& text() const { return m_text; }

  private:
    void line(const std::string& subject, const std::string& state, Tone tone,
              const std::string& text) {
        const std::string shown = m_lastSubject == subject ? "" : subject;
        m_lastSubject = subject;
        const std::string indent(m_subjectColumns + kStateColumns + 4, ' ');
        m_text += shown + std::string(m_subjectColumns - columnsOf(shown) + 2, ' ') +
                  m_terminal.in(tone, state) +
                  std::string(kStateColumns - columnsOf(state) + 2, ' ') +
                  wrapped(printable(text), indent, m_terminal.width()) + '\n';
    }

    void remark(const std::string& text) {
        const std::string indent(6, ' ');
        m_text += indent + wrapped(printable(text), indent, m_terminal.width()) + '\n';
    }

    const Terminal& m_terminal;
    size_t m_subjectColumns = 0;
    std::string m_lastSubject;
    std::string m_text;
};

// One subject: what is there in a line, what could not be tried in a line for each reason.
void show(Needs::const_iterator begin, Needs::const_iterator end, Screen* screen) {
    std::vector<std::string> met;
    std::map<std::string, std::vector<std::string>> unknown;  // things by reason
    for (auto need = begin; need != end; ++need) {
        if (need->state == NeedState::kOk) {
            met.push_back(need->found);
        } else if (need->state == NeedState::kUnknown) {
            unknown[need->found].push_back(need->thing);
        }
    }
    if (!met.empty()) {
        screen->met(begin->subject, joined(met));
    }
    for (auto need = begin; need != end; ++need) {
        if (need->state == NeedState::kMissing) {
            screen->missing(*need);
        }
    }
    for (const auto& [reason, things] : unknown) {
        screen->unknown(begin->subject, joined(things) + ": " + reason);
    }
}

}  // namespace

int exitStatusFor(const Needs& needs) {
    if (count(needs, NeedState::kMissing, false) > 0) {
        return kNeedMissing;
    }
    return count(needs, NeedState::kUnknown, false) > 0 ? kNeedUnknown : 0;
}

std::string doctorText(const Needs& needs, bool all, const Terminal& terminal) {
    Screen screen(needs, terminal);
    for (auto begin = needs.begin(); begin != needs.end();) {
        const auto end =
                all ? begin + 1 : std::find_if(begin, needs.end(), [&begin](const Need& need) {
                    return need.subject != begin->subject;
                });
        show(begin, end, &screen);
        begin = end;
    }
    return verdictOn(needs, false, terminal) + ' ' + verdictOn(needs, true, terminal) + "\n\n" +
           screen.text();
}

std::string doctorJson(const Needs& needs) {
    JsonWriter json;
    json.beginObject().number("version", int64_t{1});
    json.number("missing", static_cast<int64_t>(count(needs, NeedState::kMissing, false)));
    json.number("unknown", static_cast<int64_t>(count(needs, NeedState::kUnknown, false)));
    json.beginArray("needs");
    for (const Need& need : needs) {
        json.beginObject()
                .text("subject", need.subject)
                .text("thing", need.thing)
                .text("state", nameOf(need.state))
                .boolean("optional", need.isOptional)
                .text("found", need.found)
                .text("without", need.without)
                .text("remedy", need.remedy)
                .endObject();
    }
    json.endArray().endObject();
    return json.result();
}

}  // namespace lnkd
