// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>

#include "check/config_report.h"
#include "check/default_file.h"
#include "core/parameters.h"

namespace lnkd {
namespace {

// A configuration file with one fault in it, and the line about it.
struct FaultCase {
    std::string content;
    std::string line;  // "number severity about: text", its beginning; empty: nothing is said
};

std::vector<std::string> linesOn(const std::string& content) {
    std::vector<std::string> lines;
    for (const ConfigFinding& finding : reportOn(content).findings) {
        lines.push_back(std::to_string(finding.line) +
                        (finding.severity == Severity::kError ? " error " : " warning ") +
                        finding.about + ": " + finding.text);
    }
    return lines;
}

TEST(ConfigCheck, ReportsEachKindOfMistakeOnceAtItsLine) {
    const FaultCase cases[] = {
            {"# x\n \t\n\r\nports = 80,443 # x\nwifi_threshold = 4000 kbit/s "
             "#\r\nalpha_percent=40%\n",
             ""},
            {"\nmini_est_intervall=250",
             "2 error \"mini_est_intervall\": no such key, the line is "
             "skipped; did you mean mini_est_interval?"},
            {"Ports=80",
             "1 error \"Ports\": no such key, the line is skipped; did you mean ports?"},
            {"zzz=1", "1 error \"zzz\": no such key, the line is skipped"},
            {"ports 80", "1 error \"ports 80\": no \"=\", the line is skipped"},
            {"wan_threshold=fast", "1 error wan_threshold = fast: no number, taken as 0"},
            {"wan_threshold=", "1 error wan_threshold = : no number, taken as 0"},
            {"ping_interval_ms=2s",
             "1 error ping_interval_ms = 2s: read as 2 ms; \"s\" is ignored"},
            {"n_hyst=1.5", "1 error n_hyst = 1.5: read as 1; \".5\" is ignored"},
            {"t_hyst_s=9999999999",
             "1 error t_hyst_s = 9999999999: beyond 32 bits, taken as "
             "2147483647"},
            {"t_hyst_s=3000000",
             "1 warning t_hyst_s = 3000000: hardly sensible, expected 0 to "
             "3600; below 0 nothing is limited, above 2147483 the milli"},
            {"alpha_percent=120", "1 error alpha_percent = 120: above 100, taken as 100"},
            {"mini_est_interval=-5", "1 error mini_est_interval = -5: below 1, taken as 1"},
            {"min_ratio_change=-5", "1 error min_ratio_change = -5: below 0, becomes 4294967291"},
            {"n_hyst=0", "1 warning n_hyst = 0: hardly sensible, expected 1 to 1000; below 1 no"},
            {"n_hyst=2\r", "1 warning n_hyst = 2?: ends in a carriage return"},
            {"protocols=http\r", "1 error protocols = http?: a carriage return becomes part"},
            {std::string("protocols=http\0s", 16), "1 error protocols = http?s: cut at its first"},
            {"n_hyst=2\n\nn_hyst=3", "1 warning n_hyst: given again in line 3, which counts"},
            {"rtt_hist=4", "1 warning rtt_hist = 4: kept, and not used"},
            {"interface_3=x", "1 warning interface_3 = x: replaced by the property vendor.sla.if"},
            {"SLAEnabled=1", "1 warning SLAEnabled = 1: replaced by the property vendor.sla.enab"},
            {"rtt_server=10.0.0.1",
             "1 warning rtt_server = 10.0.0.1: counts until the first game "
             "or call starts, which goes back to 8.8.8.8"},
            {"rtt_server=example.org", "1 error rtt_server = example.org: no IPv4 address"},
            {"ports=80,99999", "1 warning ports = 80,99999: no port (1 to 65535): \"99999\""},
            {"uid_whitelist=7,1010123, 8,010",
             "1 error uid_whitelist = 7,1010123, 8,010: skipped, "
             "no UID (digits, no leading 0, at most 5): "
             "\"1010123\", \" 8\", \"010\""},
    };
    for (const auto& [content, line] : cases) {
        const std::vector<std::string> lines = linesOn(content);
        ASSERT_EQ(lines.size(), line.empty() ? 0 : 1) << content;
        EXPECT_EQ(line.empty() ? "" : lines[0].substr(0, line.size()), line);
    }
    std::string foreign;
    for (int i = 0; i < 101; ++i)
        foreign += "n_hist=1\n";
    const std::vector<std::string> lines = linesOn(foreign);
    ASSERT_EQ(lines.size(), 101U);
    EXPECT_NE(lines[99].find("did you mean n_hyst?"), std::string::npos);
    EXPECT_EQ(lines[100].find("did you mean"), std::string::npos) << "a search for each line";
}

std::string valueIn(const ConfigReport& report, const std::string& key) {
    for (const ConfigValue& value : report.values)
        if (value.note->key == key)
            return value.text + '@' + std::to_string(value.line);
    return "none";
}

TEST(ConfigCheck, SaysWhatIsInForceAsTheDaemonReadsIt) {
    const ConfigReport report = reportOn(
            "wifi_threshold=1\nwifi_threshold=-1\nalpha_percent=-3\nmini_est_interval=-3\n"
            "uid_whitelist=7,x,8\nrtt_server=10.0.0.1\nn_hyst=\nwan_threshold = 4 # x\n");
    for (const auto& [key, value] : std::initializer_list<std::pair<const char*, const char*>>{
                 {"wifi_threshold", "4294967295@2"},
                 {"alpha_percent", "0@3"},
                 {"mini_est_interval", "1@4"},
                 {"uid_whitelist", "7,8@5"},
                 {"rtt_server", "10.0.0.1@6"},
                 {"n_hyst", "0@7"},
                 {"wan_threshold", "4@8"},
                 {"ping_interval_ms", "1000@0"}})
        EXPECT_EQ(valueIn(report, key), value) << key;
}

TEST(ConfigCheck, KnowsTheVeryKeysOfTheDaemonAndPrintsAFileThatChangesNothing) {
    std::multiset<std::string_view> keys, notes, printed;
    for (const Parameters::ConfigKey& key : Parameters::configKeys())
        keys.insert(key.name);
    const ConfigReport defaults = reportOn("");
    for (const ConfigValue& value : defaults.values)
        notes.insert(value.note->key);
    EXPECT_EQ(keys, notes);

    const ConfigReport report = reportOn(defaultFile());
    EXPECT_TRUE(report.findings.empty());
    for (size_t i = 0; i < report.values.size(); ++i) {
        EXPECT_EQ(report.values[i].text, defaults.values[i].text) << report.values[i].note->key;
        const KeyUse use = report.values[i].note->use;
        EXPECT_EQ(report.values[i].line != 0,
                  use == KeyUse::kUsed || use == KeyUse::kUntilFirstGame);
    }
}

std::string contentOf(const std::string& name) {
    std::ifstream file(LNKD_SOURCE "/" + name);
    return {std::istreambuf_iterator<char>(file), {}};
}

// What the matches of an expression have captured: "key value".
std::set<std::string> captured(const std::string& text, const char* expression) {
    std::set<std::string> all;
    const std::regex pattern(expression);
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match)
        EXPECT_TRUE(all.insert((*match)[1].str() + ' ' + (*match)[2].str()).second)
                << (*match)[1] << " stands twice";
    return all;
}

TEST(ConfigDocuments, HaveTheKeysAndDefaultsOfTheDaemon) {
    std::set<std::string> sample, manual, unused, replaced;
    for (const ConfigValue& value : reportOn("").values) {
        const std::string key(value.note->key);
        if (value.note->use == KeyUse::kUnused) {
            unused.insert(key + ' ');
        } else if (value.note->use == KeyUse::kReplacedAtStart) {
            replaced.insert(key + ' ');
        } else {
            const std::string unit(value.note->unit);
            sample.insert(key + ' ' + value.text);
            manual.insert(key + ' ' + (value.text.empty() ? "empty" : value.text) +
                          (unit.empty() ? "" : ' ' + unit));
        }
    }
    EXPECT_EQ(captured(contentOf("packaging/android/lnkd.conf"), "\n#([A-Za-z_0-9]+) = ?(.*)"),
              sample);
    const std::string page = contentOf("packaging/man/lnkd.conf.5");
    const size_t begin = page.find(".Ss Replaced"), middle = page.find(".Ss Without"),
                 end = page.find(".Sh FILES");
    EXPECT_EQ(captured(page.substr(0, begin), "\n\\.It Cm (\\S+) Pq (.*)"), manual);
    EXPECT_EQ(captured(page.substr(middle, end - middle), "\n\\.Cm (\\S+) ()[,.]"), unused);
    std::set<std::string> named =
            captured(page.substr(begin, middle - begin), "(num_\\w+|interface_\\d|SLA\\w+)()");
    named.insert({"interface_1 ", "interface_2 "});  // "interface_0 to interface_3"
    EXPECT_EQ(named, replaced);
}

}  // namespace
}  // namespace lnkd
