// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "explain/story.h"
#include "explain/tunables.h"
#include "output/json.h"
#include "output/terminal.h"

namespace lnkd {

// A log that is decided again, by the program that does so.
struct ReplayedLog {
    std::string path;  // readable more than once
    std::string conf;  // the daemon's configuration; empty: none
};

// The story of the log with some "KEY=VALUE" tunables other than they were.
bool replayStory(const ReplayedLog& log, const std::vector<std::string>& tunables, Story* story,
                 std::string* error);

// The story with none changed, which must have decided what the log says: false when it has not,
// with the first decision that differs and what to do.
bool verifiedStory(const ReplayedLog& log, Story* story, std::string* error);

// Two stories side by side.
std::string comparisonOf(const Story& logged, const Story& changed,
                         const std::vector<std::string>& tunables, const Terminal& terminal);

// The stories of each value, two at a time or as many as there are processors. False when one could
// not be told.
bool sweepStories(const ReplayedLog& log, const Sweep& sweep, std::vector<Story>* stories,
                  std::string* error);
std::string sweepTable(const Sweep& sweep, const std::vector<Story>& stories, const Story& logged,
                       const Terminal& terminal);

}  // namespace lnkd
