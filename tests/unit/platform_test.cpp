// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <cutils/properties.h>
#include <sys/socket.h>

#include <regex>

#include "private_world.h"

TEST(Log, WritesAMessageWholeWithAPrefixForEachLine) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    const std::string large(5000, 'x'), id = " +" + std::to_string(getpid());
    const std::regex prefix("[-0-9]{5} [:0-9]{8}\\.\\d{3}" + id + id + " I DVX-Test: ");
    const std::pair<std::string, std::string> cases[] = {
            {"text\n", "#text\n"},
            {"a\nb\n\n", "#a\n#b\n#\n"},
            {"\x1b[2J\r\t\x7f\xc2\x9b\x9b é！\xc2]",
             "#\\x1b[2J\\x0d\\x09\\x7f\\xc2\\x9b\\x9b é！\\xc2]\n"},
            {large, '#' + large + '\n'}};
    for (const auto& [text, expected] : cases) {
        const int saved = dup(STDERR_FILENO);
        dup2(ends[1], STDERR_FILENO);
        __android_log_print(ANDROID_LOG_INFO, "DVX-Test", "%s", text.c_str());
        dup2(saved, STDERR_FILENO);
        std::string written(8192, 0);  // by one write: the socket keeps their borders
        written.resize(static_cast<size_t>(recv(ends[0], written.data(), 8192, MSG_DONTWAIT)));
        EXPECT_EQ(std::regex_replace(written, prefix, "#"), expected);
    }
}

using Properties = PrivateWorld;

TEST_F(Properties, AreReadAfreshFromTheLastLineOfTheirKey) {
    char value[PROPERTY_VALUE_MAX];
    const std::string large(200, 'l');
    write("/vendor/build.prop", "a=1\n#c=2\nab=3\n b = x=y \nempty=\na=5\nlong=" + large);
    const std::pair<const char*, std::string> cases[] = {
            {"a", "5"}, {"b", "x=y"}, {"long", large.substr(0, 91)}, {"empty", ""}, {"c", "none"}};
    for (const auto& [key, expected] : cases) {
        property_get(key, value, "none");
        EXPECT_EQ(value, expected);
    }
}
