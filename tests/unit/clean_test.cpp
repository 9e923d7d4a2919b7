// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "clean/running_commands.h"

namespace lnkd {
namespace {

// Words of a command line with "|" between them.
bool isTheDaemons(std::string words) {
    std::replace(words.begin(), words.end(), '|', '\0');
    return isCommandOfDaemon(words);
}

TEST(Clean, WaitsForTheDaemonsCommandsOnly) {
    const std::pair<const char*, bool> cases[] = {
            {"sh|-c|/system/bin/iptables-wrapper-1.0 -w -t mangle -F zelk_SLA|", true},
            {"/bin/sh|/system/bin/iptables-wrapper-1.0|-w|-t|mangle|-F|zelk_SLA|", true},
            {"/usr/sbin/iptables|-w|-t|mangle|-F|zelk_SLA|", true},
            {"ip|-4|rule|del|fwmark|0x5A|prio|30000|", true},
            {"sh|-c|sleep 4; : iptables zelk_|", false},
            {"less|zelk_iptables.txt|", false},
            {"iptables|-w|-t|mangle|-S|", false},
            {"ip|-4|rule|", false},
            {"", false},
    };
    for (const auto& [words, expected] : cases) {
        EXPECT_EQ(isTheDaemons(words), expected) << words;
    }
}

}  // namespace
}  // namespace lnkd
