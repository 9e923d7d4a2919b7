// SPDX-License-Identifier: Apache-2.0
// Replays a log of the daemon with other tunables: lnkd-replay [--conf=FILE] [KEY=VALUE ...] LOG.
// Writes the log that the daemon would have written. "lnkdctl explain" starts it, and reads that.
#include <cstdio>
#include <set>
#include <string>

#include "core/parameters.h"
#include "logfile/log_input.h"
#include "replay/log_replay.h"
#include "replay/sink.h"
#include "replay/stand_ins.h"

namespace lnkd {
namespace {

bool setTunable(const std::string& word, std::set<std::string>* changed) {
    const size_t equals = word.find('=');
    if (equals == std::string::npos) {
        return false;
    }
    const std::string key = word.substr(0, equals);
    changed->insert(key);
    return Parameters::instance()->setValue(key.c_str(), word.c_str() + equals + 1);
}

int replay(const std::string& path, const std::set<std::string>& changed) {
    LogInput input;
    if (!input.open(path)) {
        std::fprintf(stderr, "lnkd-replay: %s: %s\n", path.c_str(), input.error().c_str());
        return 1;
    }
    Sink::instance().mute(false);
    LogReplay replayed(changed);
    std::string_view text;
    while (input.next(&text)) {
        LogLine line;
        if (parseLogLine(text, &line) && isDaemonLine(line)) {
            replayed.take(text, line, parseLogEvent(line));
        }
    }
    replayed.finish();
    return Sink::instance().flush() && input.error().empty() ? 0 : 1;
}

int run(int argc, char** argv) {
    const std::string kConf = "--conf=";
    Sink::instance().mute(true);
    std::set<std::string> changed;
    for (int i = 1; i + 1 < argc; ++i) {
        const std::string word = argv[i];
        if (word.compare(0, kConf.size(), kConf) == 0) {
            standIns().configurationFile = word.substr(kConf.size());  // before it is read
        } else if (!setTunable(word, &changed)) {
            std::fprintf(stderr, "lnkd-replay: %s: not a tunable\n", argv[i]);
            return 2;
        }
    }
    if (argc < 2) {
        std::fputs("Usage: lnkd-replay [--conf=FILE] [KEY=VALUE ...] LOG\n", stderr);
        return 2;
    }
    return replay(argv[argc - 1], changed);
}

}  // namespace
}  // namespace lnkd

int main(int argc, char** argv) {
    return lnkd::run(argc, argv);
}
