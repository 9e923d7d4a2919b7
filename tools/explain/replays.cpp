// SPDX-License-Identifier: Apache-2.0
#include "explain/replays.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "core/thread.h"
#include "explain/program.h"
#include "explain/story_reader.h"

namespace lnkd {

namespace {

constexpr char kProgram[] = "lnkd-replay";
constexpr char kSame[] = " 0 different";

}  // namespace

bool replayStory(const ReplayedLog& log, const std::vector<std::string>& tunables, Story* story,
                 std::string* error) {
    std::vector<std::string> words = {besideProgram(kProgram)};
    if (!log.conf.empty()) {
        words.push_back("--conf=" + log.conf);
    }
    words.insert(words.end(), tunables.begin(), tunables.end());
    words.push_back(log.path);
    Program program;
    if (!program.start(words, Program::Pipe::kItsOutput)) {
        *error = words[0] + ": " + program.error();
        return false;
    }
    LogInput input;
    input.take(program.takePipe());
    readStory(input, story);
    if (!program.finish() || story->replayed.empty()) {
        *error = std::string(kProgram) + " could not replay it";
        return false;
    }
    return true;
}

bool verifiedStory(const ReplayedLog& log, Story* story, std::string* error) {
    if (!replayStory(log, {}, story, error)) {
        return false;
    }
    if (story->choices == 0 && story->passes == 0) {
        *error = "nothing to decide again: no game or call starts in the log, and no pass tells "
                 "its rates";
        return false;
    }
    const size_t same = story->replayed.find(kSame);
    if (same == std::string::npos || same + sizeof(kSame) - 1 != story->replayed.size()) {
        *error = "with the same tunables the replay decides otherwise, so no other can be judged "
                 "by it:\n  " +
                 story->replayed +
                 "\nn_hyst, min_ping_times and the thresholds are in no log: name the daemon's "
                 "configuration with --conf=FILE";
        return false;
    }
    return true;
}

bool sweepStories(const ReplayedLog& log, const Sweep& sweep, std::vector<Story>* stories,
                  std::string* error) {
    const size_t count = sweep.values.size();
    stories->resize(count);
    std::vector<std::string> errors(count);
    std::atomic<size_t> next{0};
    const auto work = [&] {
        for (size_t i = next++; i < count; i = next++) {
            Story& story = (*stories)[i];
            replayStory(log, {sweep.key + '=' + std::to_string(sweep.values[i])}, &story,
                        &errors[i]);
            story.curves.clear();  // only its figures are wanted
            story.moments.clear();
            story.failures.clear();
        }
    };
    const auto processors = static_cast<size_t>(std::max<long>(sysconf(_SC_NPROCESSORS_ONLN), 1));
    std::vector<Thread> threads;
    for (size_t i = 1; i < std::min(processors, count); ++i) {
        threads.emplace_back(work);
    }
    work();
    for (Thread& thread : threads) {
        thread.join();
    }
    const auto failed = std::find_if(errors.begin(), errors.end(),
                                     [](const std::string& text) { return !text.empty(); });
    *error = failed == errors.end() ? "" : *failed;
    return error->empty();
}

}  // namespace lnkd
