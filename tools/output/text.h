// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lnkd {

// `text` in quotes for an error line: cut to a readable length, and bytes that could steer a
// terminal shown as "?".
std::string quoted(const std::string& text);

// "0x5a".
std::string hexadecimal(uint32_t number);

// "1 connection", "2 connections"; a whole number of any kind.
template <typename Number>
std::string countOf(Number count, const std::string& thing) {
    return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

// "999", "1.2 k", "35 M".
std::string countText(uint64_t count);

// "1.2 Mb/s"; a rate in bit/s.
std::string rateText(double bitsPerSecond);

// "3.6 MB"; bytes, in powers of 1000.
std::string sizeText(double bytes);

// "850 ms", "12.3 s", "4 min 05 s", "3 h 12 min".
std::string durationText(int64_t ms);

// "3 min"; how long something has been so, in s.
std::string ageText(int64_t seconds);

std::string joined(const std::vector<std::string>& items, const char* separator = ", ");

// "a, b, c", or `otherwise` when there are none.
std::string listText(const std::vector<std::string>& items, const std::string& otherwise);

}  // namespace lnkd
