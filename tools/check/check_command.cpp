// SPDX-License-Identifier: Apache-2.0
#include "check/check_command.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "check/config_report.h"
#include "check/default_file.h"
#include "core/config_file.h"
#include "output/json.h"
#include "output/terminal.h"
#include "output/text.h"

namespace lnkd {

namespace {

constexpr int kWarned = 1;
constexpr int kWrong = 2;
constexpr size_t kLongestShown = 24;  // columns of a value

bool isInForce(const KeyNote& note) {
    return note.use == KeyUse::kUsed || note.use == KeyUse::kUntilFirstGame;
}

const char* nameOf(Severity severity) {
    return severity == Severity::kError ? "error" : "warning";
}

const char* nameOf(KeyUse use) {
    switch (use) {
        case KeyUse::kUsed:
            return "used";
        case KeyUse::kUntilFirstGame:
            return "until-first-game";
        case KeyUse::kReplacedAtStart:
            return "replaced-at-start";
        case KeyUse::kUnused:
            break;
    }
    return "unused";
}

std::string findingLines(const ConfigReport& report, const Terminal& terminal) {
    std::string text;
    const std::string indent(19, ' ');
    for (const ConfigFinding& finding : report.findings) {
        const bool isError = finding.severity == Severity::kError;
        char where[32];
        snprintf(where, sizeof(where), "line %4zu  ", finding.line);
        std::string severity = nameOf(finding.severity);
        severity.resize(7, ' ');
        text += where + terminal.in(isError ? Tone::kBad : Tone::kWarning, severity) + "  " +
                wrapped(finding.about + ": " + finding.text, indent, terminal.width()) + '\n';
    }
    return text;
}

std::string shortened(const std::string& value) {
    const std::string text = printable(value);
    return columnsOf(text) <= kLongestShown ? text
                                            : std::string(cut(text, kLongestShown - 3)) + "...";
}

std::string valueLines(const ConfigReport& report, const Terminal& terminal) {
    Table table({"KEY", "VALUE", "SET BY", "MEANING"});
    for (const ConfigValue& value : report.values) {
        const KeyNote& note = *value.note;
        if (isInForce(note)) {
            const std::string unit = note.unit.empty() ? "" : ' ' + std::string(note.unit);
            table.add({{std::string(note.key)},
                       {value.text.empty() ? "(empty)" : shortened(value.text) + unit},
                       value.line == 0 ? Cell{"default", Tone::kFaint}
                                       : Cell{"line " + std::to_string(value.line)},
                       {std::string(note.meaning)}});
        }
    }
    return table.lines(terminal);
}

void printText(const std::string& file, const ConfigReport& report) {
    const Terminal terminal;
    const size_t errors = report.count(Severity::kError);
    const size_t warnings = report.count(Severity::kWarning);
    const std::string verdict =
            errors + warnings == 0 ? "nothing wrong"
                                   : countOf(errors, "error") + ", " + countOf(warnings, "warning");
    const Tone tone = errors > 0 ? Tone::kBad : warnings > 0 ? Tone::kWarning : Tone::kGood;
    const std::string text = printable(file) + ": " + terminal.in(tone, verdict) + "\n" +
                             findingLines(report, terminal) + "\nIn force with it:\n" +
                             valueLines(report, terminal);
    std::fputs(text.c_str(), stdout);
}

void printJson(const std::string& file, const ConfigReport& report) {
    JsonWriter json;
    json.beginObject();
    json.text("file", file);
    json.number("errors", static_cast<int64_t>(report.count(Severity::kError)));
    json.number("warnings", static_cast<int64_t>(report.count(Severity::kWarning)));
    json.beginArray("findings");
    for (const ConfigFinding& finding : report.findings) {
        json.beginObject()
                .number("line", static_cast<int64_t>(finding.line))
                .text("severity", nameOf(finding.severity))
                .text("about", finding.about)
                .text("text", finding.text)
                .endObject();
    }
    json.endArray().beginArray("values");
    for (const ConfigValue& value : report.values) {
        json.beginObject().text("key", value.note->key);
        if (value.isNumber) {
            json.number("value",
                        static_cast<int64_t>(std::strtoll(value.text.c_str(), nullptr, 10)));
        } else {
            json.text("value", value.text);
        }
        json.text("unit", value.note->unit);
        if (value.line == 0) {
            json.null("line");
        } else {
            json.number("line", static_cast<int64_t>(value.line));
        }
        json.text("use", nameOf(value.note->use)).endObject();
    }
    json.endArray().endObject();
    std::fputs(json.result().c_str(), stdout);
}

int runCheck(const Arguments& arguments) {
    if (arguments.has("print")) {
        if (!arguments.operands.empty()) {
            return usageError("check", quoted(arguments.operands[0]) + ": --print reads no file");
        }
        std::fputs(defaultFile().c_str(), stdout);
        return 0;
    }
    const std::string file = arguments.operands.empty() ? kConfFile : arguments.operands[0];
    std::string content;
    if (!readConfigFile(file.c_str(), content)) {
        const std::string reason =
                errno == EFBIG ? "larger than 1 MiB, the daemon refuses it" : strerror(errno);
        std::fprintf(stderr, "lnkdctl check: %s: %s; all keys keep their defaults\n",
                     quoted(file).c_str(), reason.c_str());
        return kWrong;
    }
    const ConfigReport report = reportOn(content);
    if (arguments.has("json")) {
        printJson(file, report);
    } else {
        printText(file, report);
    }
    if (report.count(Severity::kError) > 0) {
        return kWrong;
    }
    return arguments.has("strict") && report.count(Severity::kWarning) > 0 ? kWarned : 0;
}

}  // namespace

Subcommand checkCommand() {
    Subcommand command;
    command.name = "check";
    command.operand = "FILE";
    command.summary = "Says what the daemon makes of a configuration file.";
    command.options = {
            {"strict", "", "warnings count: exit status 1"},
            {"json", "", "for a program"},
            {"print", "", "print a file with every key and its default instead"},
    };
    command.notes = std::string("Without FILE it is ") + kConfFile +
                    ".\n"
                    "An error is a line of which the daemon makes something else than it says, a\n"
                    "warning one that most likely is not what was meant.\n"
                    "Exit status: 0 no error, 1 warnings with --strict, 2 errors or usage.\n";
    command.run = runCheck;
    return command;
}

}  // namespace lnkd
