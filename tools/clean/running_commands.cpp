// SPDX-License-Identifier: Apache-2.0
#include "clean/running_commands.h"

#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "core/text_values.h"
#include "state/packet_filter.h"
#include "state/reading.h"

namespace lnkd {

namespace {

constexpr std::chrono::seconds kLongestWait(2);
constexpr std::chrono::milliseconds kPause(10);
constexpr size_t kLongestCommand = 16384;  // bytes; the daemon's are far shorter

struct FolderCloser {
    void operator()(DIR* folder) const { closedir(folder); }
};

std::vector<pid_t> commandsOfDaemon() {
    std::vector<pid_t> found;
    const std::unique_ptr<DIR, FolderCloser> folder(opendir("/proc"));
    if (folder == nullptr) {
        return found;
    }
    while (const dirent* const entry = readdir(folder.get())) {
        const std::string name = entry->d_name;
        // One that cannot be read has ended, or has a command line longer than any of these.
        const Reading<std::string> words =
                isAllDigits(name) ? readFile("/proc/" + name + "/cmdline", kLongestCommand)
                                  : Reading<std::string>();
        if (isCommandOfDaemon(words.value)) {
            found.push_back(parseInt(name.c_str()));
        }
    }
    return found;
}

}  // namespace

bool isCommandOfDaemon(std::string_view words) {
    const std::string_view program = words.substr(0, words.find('\0'));
    const std::string_view name = program.substr(program.rfind('/') + 1);
    // The shell has one word with the whole line, the tool that it became one word for each.
    std::string line(words);
    for (char& c : line) {
        c = c == '\0' ? ' ' : c;
    }
    const auto names = [&line](const char* text) { return line.find(text) != std::string::npos; };
    const bool isOfTool =
            name.compare(0, 2, "ip") == 0 || names(kPacketFilterTool) || names(kRoutingTool);
    return isOfTool && (names(" zelk_") || (names(" rule ") && names(" prio 30000")));
}

std::vector<pid_t> waitForCommands() {
    const auto end = std::chrono::steady_clock::now() + kLongestWait;
    std::vector<pid_t> running = commandsOfDaemon();
    while (!running.empty() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(kPause);
        running = commandsOfDaemon();
    }
    return running;
}

}  // namespace lnkd
