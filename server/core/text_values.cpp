// SPDX-License-Identifier: Apache-2.0
#include "core/text_values.h"

#include <net/if.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>

namespace lnkd {

namespace {

constexpr size_t kLongestTableName = 127;  // what an interface record holds

// The C library's isalnum follows the locale; what a shell takes as harmless does not.
bool isPlainCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.' || c == ':' || c == '-';
}

bool isPlainName(std::string_view text) {
    return !text.empty() && text.front() != '-' && text.front() != '.' &&
           std::all_of(text.begin(), text.end(), isPlainCharacter);
}

std::optional<uint32_t> parseUnsigned(std::string_view digits, int base) {
    uint32_t value = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, base);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return value;
}

bool hasSuffix(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

}  // namespace

bool hasPrefix(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::vector<std::string> splitList(std::string_view text) {
    std::vector<std::string> elements;
    while (!text.empty()) {
        const size_t comma = text.find(',');
        elements.emplace_back(text.substr(0, comma));
        text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
    }
    return elements;
}

std::vector<std::string> splitDistinct(std::string_view text) {
    std::vector<std::string> distinct;
    for (std::string& element : splitList(text)) {
        if (std::find(distinct.begin(), distinct.end(), element) == distinct.end()) {
            distinct.push_back(std::move(element));
        }
    }
    return distinct;
}

int32_t parseInt(const char* text) {
    const long long value = strtoll(text, nullptr, 10);
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(std::clamp<long long>(value, Limits::min(), Limits::max()));
}

std::optional<uint32_t> parseUid(std::string_view text) {
    const bool isOctal = text.size() > 1 && text.front() == '0';
    return isOctal ? std::nullopt : parseUnsigned(text, 10);
}

bool isInterfaceName(std::string_view text) {
    return text.size() < IFNAMSIZ && isPlainName(text) && !hasSuffix(text, "_wrapper") &&
           !hasPrefix(text, "uid_");
}

bool isRouteTableName(std::string_view text) {
    return text.size() <= kLongestTableName && isPlainName(text);
}

std::optional<uint32_t> parseFwmark(std::string_view text) {
    return hasPrefix(text, "0x") ? parseUnsigned(text.substr(2), 16) : parseUnsigned(text, 10);
}

bool isAllDigits(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isCellularName(std::string_view name) {
    return hasPrefix(name, "rmnet_data") || hasPrefix(name, "ccmni");
}

}  // namespace lnkd
