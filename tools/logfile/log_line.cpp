// SPDX-License-Identifier: Apache-2.0
#include "logfile/log_line.h"

#include <cstddef>

namespace lnkd {

namespace {

constexpr size_t kStampSize = sizeof("MM-DD HH:MM:SS.mmm") - 1;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// The `count` digits at `at`; -1 when there are others.
int32_t digitsAt(std::string_view text, size_t at, size_t count) {
    int32_t value = 0;
    for (size_t i = at; i < at + count; ++i) {
        if (!isDigit(text[i])) {
            return -1;
        }
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

bool parseStamp(std::string_view text, LogLine* line) {
    if (text.size() < kStampSize || text[2] != '-' || text[5] != ' ' || text[8] != ':' ||
        text[11] != ':' || text[14] != '.') {
        return false;
    }
    line->month = digitsAt(text, 0, 2);
    line->day = digitsAt(text, 3, 2);
    const int32_t hour = digitsAt(text, 6, 2);
    const int32_t minute = digitsAt(text, 9, 2);
    const int32_t second = digitsAt(text, 12, 2);
    const int32_t ms = digitsAt(text, 15, 3);
    // A leap second is 60.
    if (line->month < 1 || line->month > 12 || line->day < 1 || line->day > 31 || hour < 0 ||
        hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 60 || ms < 0) {
        return false;
    }
    line->ofDayMs = ((hour * 60 + minute) * 60 + second) * 1000 + ms;
    return true;
}

// A process or thread id behind blanks.
bool takeId(std::string_view& text, int32_t* id) {
    constexpr size_t kMostDigits = 9;
    const size_t begin = text.find_first_not_of(' ');
    if (begin == 0 || begin == std::string_view::npos) {
        return false;
    }
    text.remove_prefix(begin);
    size_t digits = 0;
    while (digits < text.size() && isDigit(text[digits])) {
        ++digits;
    }
    if (digits == 0 || digits > kMostDigits) {
        return false;
    }
    *id = digitsAt(text, 0, digits);
    text.remove_prefix(digits);
    return true;
}

}  // namespace

bool parseLogLine(std::string_view text, LogLine* line) {
    if (!text.empty() && text.back() == '\r') {
        text.remove_suffix(1);
    }
    if (!parseStamp(text, line)) {
        return false;
    }
    text.remove_prefix(kStampSize);
    if (!takeId(text, &line->pid) || !takeId(text, &line->tid) || text.size() < 3 ||
        text[0] != ' ' || text[2] != ' ') {
        return false;
    }
    line->level = text[1];
    text.remove_prefix(3);
    // A short tag is filled up with blanks.
    const size_t end = text.find(": ");
    const size_t length = end != std::string_view::npos ? end : text.size() - 1;
    if (text.empty() || (end == std::string_view::npos && text.back() != ':')) {
        return false;
    }
    line->tag = text.substr(0, length);
    while (!line->tag.empty() && line->tag.back() == ' ') {
        line->tag.remove_suffix(1);
    }
    line->text = end != std::string_view::npos ? text.substr(end + 2) : std::string_view();
    return true;
}

bool isDaemonLine(const LogLine& line) {
    constexpr std::string_view kPrefix = "DVX-Lnkd-";
    return line.tag.compare(0, kPrefix.size(), kPrefix) == 0 || line.tag == "dvx-netlink";
}

}  // namespace lnkd
