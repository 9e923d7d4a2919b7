// SPDX-License-Identifier: Apache-2.0
//
// Counting the connections of a mark in a large connection table, beside grep on the same file.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "rules/iptables_manager.h"

namespace lnkd {
namespace {

constexpr char kDirectory[] = "/run/lab/table";
constexpr char kTable[] = "/run/lab/table/nf_conntrack";
constexpr int kLines = 100000;

// Writes the table and puts it where the count looks for it. The directory is covered because the
// kernel looks up each file in it afresh, which would uncover a file. What is covered is this
// process's own /proc/net: nobody else sees it. False outside of a world.
bool makeTable() {
    static constexpr int kMarks[] = {0, 90, 91, 92};
    if (access("/run/lab/links", F_OK) != 0 || mkdir(kDirectory, 0755) != 0) {
        return false;
    }
    std::ofstream table(kTable);
    for (int i = 0; i < kLines; ++i) {
        char line[256];
        snprintf(line, sizeof(line),
                 "ipv4     2 tcp      6 %d ESTABLISHED src=10.10.%d.2 dst=203.0.113.%d sport=%d "
                 "dport=443 src=203.0.113.%d dst=10.10.%d.2 sport=443 dport=%d [ASSURED] mark=%d "
                 "zone=0 use=2\n",
                 431999 - i, i % 3 + 1, i % 250 + 1, 1024 + i % 60000, i % 250 + 1, i % 3 + 1,
                 1024 + i % 60000, kMarks[i * 7 / 5 % 4]);
        table << line;
    }
    table.close();
    return table && mount(kDirectory, "/proc/self/net", nullptr, MS_BIND, nullptr) == 0;
}

bool haveTable(benchmark::State& state) {
    static const bool made = makeTable();
    if (!made) {
        state.SkipWithError("no connection table: run it with lab/phone");
    }
    return made;
}

void markCount(benchmark::State& state) {
    if (!haveTable(state)) {
        return;
    }
    int32_t count = 0;
    for ([[maybe_unused]] auto _ : state) {
        count = IptablesManager::get_nf_conntrack_mark_number("0x5A");
    }
    state.counters["count"] = count;
}
BENCHMARK(markCount)->Unit(benchmark::kMillisecond)->UseRealTime();

// Runs grep and returns what it printed. Into a pipe, because it would stop at the first match if
// its output were thrown away.
int grepCount(std::string file) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return -1;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string words[] = {"grep", "-c", "mark=90"};
    char* argv[] = {words[0].data(), words[1].data(), words[2].data(), file.data(), nullptr};
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    char text[32] = {};
    const ssize_t length = read(ends[0], text, sizeof(text) - 1);
    close(ends[0]);
    if (error == 0) {
        waitpid(pid, nullptr, 0);
    }
    return length > 0 ? static_cast<int>(strtol(text, nullptr, 10)) : -1;
}

void grep(benchmark::State& state) {
    if (!haveTable(state)) {
        return;
    }
    setenv("LC_ALL", state.range(0) != 0 ? "C.UTF-8" : "C", 1);
    const char* const file = state.range(1) != 0 ? "/dev/null" : kTable;
    int count = 0;
    for ([[maybe_unused]] auto _ : state) {
        count = grepCount(file);
    }
    state.counters["count"] = count;
}
BENCHMARK(grep)
        ->ArgNames({"utf8", "empty"})
        ->ArgsProduct({{0, 1}, {0, 1}})
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();

}  // namespace
}  // namespace lnkd
