// SPDX-License-Identifier: Apache-2.0
#include "output/text.h"

#include <cstdio>
#include <iterator>

namespace lnkd {

namespace {

constexpr size_t kMaxQuoted = 40;  // an error stays on one line of a terminal

// Three digits and a prefix: "0", "640", "1.2 k", "35 M".
std::string withPrefix(double value, const char* const (&prefixes)[4]) {
    size_t i = 0;
    for (; value >= 999.5 && i + 1 < std::size(prefixes); ++i) {
        value /= 1000;
    }
    char text[64];
    snprintf(text, sizeof(text), i > 0 && value < 9.95 ? "%.1f %s" : "%.0f %s", value, prefixes[i]);
    return text;
}

}  // namespace

std::string quoted(const std::string& text) {
    std::string result = text.substr(0, kMaxQuoted);
    for (char& c : result) {
        if (c < ' ' || c > '~') {
            c = '?';
        }
    }
    return '"' + result + (text.size() > kMaxQuoted ? "..." : "") + '"';
}

std::string hexadecimal(uint32_t number) {
    char text[16];
    snprintf(text, sizeof(text), "0x%x", number);
    return text;
}

std::string countText(uint64_t count) {
    return count < 1000 ? std::to_string(count)
                        : withPrefix(static_cast<double>(count), {"", "k", "M", "G"});
}

std::string rateText(double bitsPerSecond) {
    return withPrefix(bitsPerSecond, {"b/s", "kb/s", "Mb/s", "Gb/s"});
}

std::string sizeText(double bytes) {
    return withPrefix(bytes, {"B", "kB", "MB", "GB"});
}

std::string durationText(int64_t ms) {
    char text[64];
    if (ms < 1000) {
        snprintf(text, sizeof(text), "%d ms", static_cast<int>(ms));
    } else if (ms < 60000) {
        snprintf(text, sizeof(text), "%.1f s", static_cast<double>(ms) / 1000);
    } else if (ms < 3600000) {
        snprintf(text, sizeof(text), "%d min %02d s", static_cast<int>(ms / 60000),
                 static_cast<int>(ms / 1000 % 60));
    } else {
        snprintf(text, sizeof(text), "%lld h %02d min", static_cast<long long>(ms / 3600000),
                 static_cast<int>(ms / 60000 % 60));
    }
    return text;
}

std::string ageText(int64_t seconds) {
    constexpr struct {
        int64_t seconds;
        const char* name;
    } kUnits[] = {{86400, "day"}, {3600, "h"}, {60, "min"}};
    for (const auto& unit : kUnits) {
        if (seconds >= unit.seconds) {
            const int64_t count = seconds / unit.seconds;
            const bool isPlural = count > 1 && unit.seconds == 86400;
            return std::to_string(count) + ' ' + unit.name + (isPlural ? "s" : "");
        }
    }
    return std::to_string(seconds) + " s";
}

std::string joined(const std::vector<std::string>& items, const char* separator) {
    std::string text;
    for (const std::string& item : items) {
        text += (text.empty() ? "" : separator) + item;
    }
    return text;
}

std::string listText(const std::vector<std::string>& items, const std::string& otherwise) {
    return items.empty() ? otherwise : joined(items);
}

}  // namespace lnkd
