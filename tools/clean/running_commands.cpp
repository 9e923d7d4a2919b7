// SPDX-License-Identifier: Apache-2.0
#include "clean/running_commands.h"

#include <chrono>
#include <string>
#include <thread>

#include "state/packet_filter.h"
#include "state/processes.h"
#include "state/reading.h"

namespace lnkd {

namespace {

constexpr std::chrono::seconds kLongestWait(2);
constexpr std::chrono::milliseconds kPause(10);
constexpr size_t kLongestCommand = 16384;  // bytes; the daemon's are far shorter

std::vector<pid_t> commandsOfDaemon() {
    std::vector<pid_t> found;
    for (const pid_t pid : readProcesses()) {
        // One that cannot be read has ended, or has a command line longer than any of these.
        const Reading<std::string> words =
                readFile("/proc/" + std::to_string(pid) + "/cmdline", kLongestCommand);
        if (isCommandOfDaemon(words.value)) {
            found.push_back(pid);
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
