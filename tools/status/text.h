// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace lnkd {

// "0x5a".
std::string hexadecimal(uint32_t number);

// "1 connection", "2 connections".
std::string countOf(size_t count, const std::string& thing);

// "999", "1.2 k", "35 M".
std::string countText(uint64_t count);

// "1.2 Mb/s"; a rate in bit/s.
std::string rateText(double bitsPerSecond);

// "3.6 MB"; bytes, in powers of 1000.
std::string sizeText(double bytes);

// "3 min"; a time in s.
std::string durationText(int64_t seconds);

// "a, b, c", or `otherwise` when there are none.
std::string listText(const std::vector<std::string>& items, const std::string& otherwise);

}  // namespace lnkd
