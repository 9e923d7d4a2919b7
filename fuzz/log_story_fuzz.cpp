// SPDX-License-Identifier: Apache-2.0
#include "explain/story_json.h"
#include "explain/story_reader.h"
#include "explain/words.h"
#include "helpers.h"

namespace {

// What could steer a terminal, but for the ends of lines.
bool hasControls(const std::string& text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 && c != '\n'; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    lnkd::StoryReader reader;
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        reader.take(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    const lnkd::Story story = reader.finish();
    require(story.worseMs <= story.selecting.ms);
    require(story.curves.size() <= 32);
    require(story.missing.size() <= 2);  // joins, and choices that are not whole
    for (const lnkd::Moment& moment : story.moments) {
        require(moment.text.size() <= lnkd::kLongestText + 3);
        require(moment.from.name.size() <= 15 && moment.to.name.size() <= 15);
    }
    for (const lnkd::Failure& failure : story.failures)
        require(failure.text.size() <= lnkd::kLongestFailure + 3);
    require(!hasControls(lnkd::screenOf(story, "log", true, lnkd::Terminal())));
    require(!hasControls(lnkd::jsonOf(story, "log", true)));
    return 0;
}
