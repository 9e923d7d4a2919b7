// SPDX-License-Identifier: Apache-2.0
#include "check/default_file.h"

#include "check/config_report.h"
#include "output/terminal.h"

namespace lnkd {

namespace {

constexpr size_t kWidth = 80;
constexpr char kIntroduction[] =
        "# Configuration of lnkd, read once, at start. Each key has its default here.\n"
        "# key = value; \"#\" begins a comment; lines end with a line feed alone.\n";

std::string comment(const std::string& text) {
    return "# " + wrapped(text, "# ", kWidth) + '\n';
}

// What a used key is for and which numbers make sense.
std::string commentOn(const ConfigValue& value) {
    const KeyNote& note = *value.note;
    std::string text = comment(std::string(note.remark));
    if (value.isNumber) {
        text += comment("Sensible: " + std::to_string(note.sensible.least) + " to " +
                        std::to_string(note.sensible.most) + (note.unit.empty() ? "" : " ") +
                        std::string(note.unit) + '.');
    }
    return text;
}

}  // namespace

std::string defaultFile() {
    std::string used;
    std::string replaced = "\n# --- Replaced at start by properties\n\n";
    std::string unused = "\n# --- Kept, and not used\n\n";
    std::string_view subject;
    for (const ConfigValue& value : reportOn("").values) {
        const KeyNote& note = *value.note;
        const std::string line =
                std::string(note.key) + " =" + (value.text.empty() ? "" : " ") + value.text + '\n';
        if (note.use == KeyUse::kUnused) {
            unused += '#' + line;
            continue;
        }
        if (note.use == KeyUse::kReplacedAtStart) {
            replaced += '#' + line;
            continue;
        }
        if (note.subject != subject) {
            subject = note.subject;
            used += "\n# --- " + std::string(subject) + '\n';
        }
        used += '\n' + commentOn(value) + line;
    }
    return kIntroduction + used + replaced + unused;
}

}  // namespace lnkd
