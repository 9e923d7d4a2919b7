// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "commands/table.h"
#include "output/json.h"
#include "output/nearest.h"
#include "output/terminal.h"

namespace lnkd {
namespace {

TEST(Output, JsonQuotesWhatOthersWrote) {
    JsonWriter json;
    json.beginObject().beginArray("links").endArray().beginObject("wlan0");
    json.text("say", "a\"\\\n\x1b\xff\xc3\xa9\xed\xa0\x80").number("mark", int64_t{90});
    json.number("share", 0.5, 3).number("rate", 0.0 / 0.0, 1).boolean("up", true).null("rtt");
    json.endObject().endObject();
    EXPECT_EQ(json.result(),
              "{\n  \"links\": [],\n  \"wlan0\": {\n"
              "    \"say\": \"a\\\"\\\\\\u000a\\u001b\uFFFD\u00e9\uFFFD\uFFFD\uFFFD\",\n"
              "    \"mark\": 90,\n    \"share\": 0.500,\n    \"rate\": null,\n    \"up\": true,\n"
              "    \"rtt\": null\n  }\n}\n");
}

TEST(Output, ATableLinesUpAndSteersNoTerminal) {
    Table table({"LINK", " SHARE", "STATE"});
    table.add({{"wlan0"}, {"5 %"}, {"café"}});
    table.add({{"rmnet_data0"}, {"100 %"}, {printable("a\033[2J\xc2\x9b\n")}});
    EXPECT_EQ(table.lines(Terminal()),
              "LINK         SHARE  STATE\n"
              "wlan0          5 %  café\n"
              "rmnet_data0  100 %  a?[2J??\n");
    EXPECT_EQ(table.width(), 27U);
}

TEST(Output, ATextIsBrokenAtBlanksAndBlanksInARowStay) {
    EXPECT_EQ(wrapped("a  é cd efghij k", "  ", 6), "a  é\n  cd\n  efghij\n  k");
    EXPECT_EQ(wrapped("a b", "  ", 0), "a b");
    EXPECT_EQ(wrapped("", "  ", 5), "");
}

TEST(Output, TheNearestWordIsTheOneThatWasMeant) {
    const std::vector<std::string> known = {"alpha_percent", "t_hyst_s", "n_hyst", "ports"};
    const std::pair<const char*, const char*> cases[] = {
            {"aplha_percent", "alpha_percent"},
            {"alphapercent", "alpha_percent"},
            {"N_HYST", "n_hyst"},
            {"t_hyst", "t_hyst_s"},
            {"port", "ports"},
            {"alp", "alpha_percent"},  // a beginning, whatever the length
            {"cat", ""},
            {"", ""},
    };
    for (const auto& [word, meant] : cases) {
        EXPECT_EQ(nearestOf(word, known), meant) << word;
    }
}

// What a command line comes to: the help's options, operands, or the error.
std::string outcome(const Subcommand& command, const std::vector<std::string>& words) {
    Arguments arguments;
    std::string error;
    if (!parseArguments(command, words, &arguments, &error)) {
        return error;
    }
    std::string result;
    for (const Option& option : command.options) {
        result += arguments.has(option.name)
                          ? option.name + '=' + arguments.value(option.name) + ' '
                          : "";
    }
    for (const std::string& operand : arguments.operands) {
        result += operand + ' ';
    }
    return result;
}

TEST(CommandLine, IsReadOrRefusedWithTheWordAndWhatIsAllowed) {
    Subcommand command;
    command.name = "look";
    command.operand = "FILE";
    command.operandNeeded = true;
    command.options = {{"json", "", ""}, {"log", "FILE", ""}};
    const std::pair<std::vector<std::string>, const char*> cases[] = {
            {{"a"}, "a "},
            {{"--json", "--log", "x", "a"}, "json= log=x a "},
            {{"a", "--log=--json", "--log=y"}, "log=y a "},
            {{"--", "--json"}, "--json "},
            {{"-"}, "- "},
            {{}, "FILE is missing"},
            {{"a", "b"}, "\"b\": too much; the use is \"lnkdctl look [OPTIONS] FILE\""},
            {{"--lgo=x", "a"}, "\"--lgo\": not an option; did you mean --log?"},
            {{"--colour", "a"}, "\"--colour\": not an option; allowed: --json, --log, --help"},
            {{"-j", "a"}, "\"-j\": not an option; allowed: --json, --log, --help"},
            {{"--json=1", "a"}, "\"--json=1\": --json takes no argument"},
            {{"a", "--log"}, "--log: FILE is missing"},
    };
    for (const auto& [words, expected] : cases) {
        EXPECT_EQ(outcome(command, words), expected);
    }
}

TEST(CommandLine, EachHelpFitsAScreen) {
    for (const Subcommand& command : subcommands()) {
        const std::string help = helpOf(command);
        EXPECT_LE(std::count(help.begin(), help.end(), '\n'), 24) << command.name;
        for (size_t begin = 0; begin < help.size();) {
            const size_t end = help.find('\n', begin);
            ASSERT_NE(end, std::string::npos) << command.name << ": ends within a line";
            EXPECT_LE(columnsOf(help.substr(begin, end - begin)), 80U)
                    << help.substr(begin, end - begin);
            begin = end + 1;
        }
    }
}

}  // namespace
}  // namespace lnkd
