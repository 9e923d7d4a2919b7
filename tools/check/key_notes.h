// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

namespace lnkd {

// How long the value of a key counts.
enum class KeyUse {
    kUsed,
    kUntilFirstGame,   // or call: its start goes back to the default
    kReplacedAtStart,  // by a property
    kUnused,           // stored, and nothing reads it
};

// Numbers from `least` to `most`.
struct NumberRange {
    int64_t least = std::numeric_limits<int64_t>::min();
    int64_t most = std::numeric_limits<int64_t>::max();

    bool holds(int64_t number) const { return number >= least && number <= most; }
};

// What a person needs to know about a key of the configuration file. The daemon knows its name,
// its type and its default; this is the rest.
struct KeyNote {
    std::string_view key;
    KeyUse use = KeyUse::kUnused;
    std::string_view subject = {};     // kUsed, kUntilFirstGame: part of the daemon it is for
    std::string_view unit = {};        // empty: none
    std::string_view meaning = {};     // some words
    std::string_view remark = {};      // a sentence
    NumberRange sensible = {};         // other numbers are most likely a mistake
    NumberRange taken = {};            // other numbers count as the nearest of these
    std::string_view beyond = {};      // what numbers do that are not sensible
    std::string_view replacedBy = {};  // kReplacedAtStart: the property
};

// All keys: those that are used by subject, then those that are replaced, then the others.
const std::vector<KeyNote>& keyNotes();

// The note of a key; null when there is no such key.
const KeyNote* findKeyNote(std::string_view key);

}  // namespace lnkd
