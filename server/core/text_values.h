// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lnkd {

// Values travel as texts in this system: in the configuration file, in properties, in control
// messages, in interface descriptions. Any local process can write the messages, and what they
// hold ends up in command lines of a shell that runs as root, so the tests below are the trust
// boundary: nothing reaches a command or a file name that has not passed one of them.

// Splits a list at its commas. An empty element between two commas stays; a comma at the end adds
// none, and an empty text is an empty list.
std::vector<std::string> splitList(std::string_view text);

// The same, each element once, where it stands first.
std::vector<std::string> splitDistinct(std::string_view text);

bool hasPrefix(std::string_view text, std::string_view prefix);

// Reads a number as atoi does: leading blanks and sign, then decimal digits, anything after them
// ignored, 0 when there are none. A value beyond 32 bits becomes the nearest that fits.
int32_t parseInt(const char* text);

// An application's UID: digits, 32 bits, and no zero before another digit. The packet filter would
// read that as octal, and steer another application than the one whose sockets are destroyed.
std::optional<uint32_t> parseUid(std::string_view text);

// A name that the kernel accepts for an interface and that means nothing to a shell or in a path:
// letters, digits and _ . : - only, not starting with - or ., at most 15 characters. Nor does it
// end in "_wrapper" or begin with "uid_": chains named for it would be those of another interface.
bool isInterfaceName(std::string_view text);

// The same for a routing table, which may be longer.
bool isRouteTableName(std::string_view text);

// A firewall mark: decimal, or hexadecimal after 0x; 32 bits.
std::optional<uint32_t> parseFwmark(std::string_view text);

// Not empty and nothing but decimal digits.
bool isAllDigits(std::string_view text);

// A cellular interface by its name, whatever its record says about cost.
bool isCellularName(std::string_view name);

}  // namespace lnkd
