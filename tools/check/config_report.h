// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "check/config_line.h"
#include "check/key_notes.h"

namespace lnkd {

// What a key is worth once the file has been read.
struct ConfigValue {
    const KeyNote* note;
    std::string text;
    bool isNumber;
    size_t line;  // that set it, 0: it is the default
};

// What the daemon makes of a configuration file.
struct ConfigReport {
    std::vector<ConfigFinding> findings;  // in the order of the lines
    std::vector<ConfigValue> values;      // all keys, in the order of their notes

    size_t count(Severity severity) const;
};

// Judges a file's content, read by the daemon's own parser.
ConfigReport reportOn(const std::string& content);

}  // namespace lnkd
