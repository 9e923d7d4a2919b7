// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/config_file.h"
#include "core/parameters.h"

namespace lnkd {

enum class Severity {
    kWarning,  // the daemon does what the line says, which most likely is not what was meant
    kError,    // the daemon does something else
};

// What is wrong with a line. The texts are fit for a terminal.
struct ConfigFinding {
    size_t line;  // from 1
    Severity severity;
    std::string about;  // the key and its value, or the line
    std::string text;
};

// Appends what is wrong with a line taken by itself.
void judgeLine(const ConfigLine& line, std::vector<ConfigFinding>* findings);

// What the daemon takes of a pair: both are handed on as C strings.
ConfigPair asTaken(const ConfigPair& pair);

// A key as the daemon knows it; null when there is no such key.
const Parameters::ConfigKey* findConfigKey(std::string_view name);

// Whether the daemon reads its value as a number.
bool isNumber(const Parameters::ConfigKey& key);

// The entries of a whitelist that steer an application; those that the daemon skips are appended
// to `skipped`.
std::vector<std::string> steeredUids(const std::string& list, std::vector<std::string>* skipped);

}  // namespace lnkd
