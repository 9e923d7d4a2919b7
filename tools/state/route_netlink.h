// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace lnkd {

// A message of the kernel's about routing: its fixed part, then attributes (rtnetlink(7)).
class RouteMessage {
  public:
    explicit RouteMessage(std::string_view body) : m_body(body) {}

    // Copies the fixed part; false when the message is too short for it.
    template <typename Header>
    bool header(Header* out) const {
        return copy(m_body, out, sizeof(Header));
    }
    // The value of an attribute behind a fixed part of `headerSize` bytes; null data without it.
    std::string_view attribute(size_t headerSize, uint16_t type) const;
    // The same, as a number of 32 bits; `otherwise` without it.
    uint32_t number(size_t headerSize, uint16_t type, uint32_t otherwise) const;

  private:
    static bool copy(std::string_view from, void* to, size_t size);

    std::string_view m_body;
};

// Asks the kernel for all objects of a kind, such as RTM_GETRULE, and hands each to `take`. A dump
// that was interrupted by a change is asked for again: `reset` then forgets what was taken, as
// after a problem. Ends after a second at the latest. Returns the problem, empty when all was read.
std::string dumpRouting(uint16_t request, uint8_t family, const std::function<void()>& reset,
                        const std::function<void(const RouteMessage&)>& take);

}  // namespace lnkd
