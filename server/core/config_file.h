// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace lnkd {

constexpr char kConfFile[] = "/vendor/etc/sla/lnkd.conf";

// A file beyond this is not a configuration but an accident; reading it whole could take all
// memory of a small phone.
constexpr size_t kLargestConfFile = 1024 * 1024;  // bytes

// A line that counts, neither blank nor a comment, without inline comment and outer blanks.
struct ConfigLine {
    size_t number;  // from 1
    std::string text;
};

struct ConfigPair {
    std::string key;
    std::string value;
};

// Reads the whole file. False when it cannot be read or is too large, with the reason in errno.
bool readConfigFile(const char* path, std::string& content);

std::vector<ConfigLine> configLines(const std::string& content);

// Splits a line at its first "="; nothing when it has none.
std::optional<ConfigPair> configPair(const std::string& line);

}  // namespace lnkd
