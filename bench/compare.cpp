// SPDX-License-Identifier: Apache-2.0
#include "compare.h"

#include <algorithm>
#include <chrono>

double msOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void run(const char* command) {
    check(system(command) == 0, command);
}

long residentKib() {
    FILE* const file = fopen("/proc/self/smaps_rollup", "re");
    check(file != nullptr, "smaps_rollup");
    char line[256];
    long kib = 0;
    while (fgets(line, sizeof(line), file) != nullptr && sscanf(line, "Rss: %ld", &kib) != 1) {
    }
    fclose(file);
    return kib;
}
