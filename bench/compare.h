// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

// Ends the program with errno's text.
inline void check(bool good, const char* what) {
    if (!good) {
        perror(what);
        exit(1);
    }
}

double msOf(const std::function<void()>& work);
double median(std::vector<double> values);
// A shell's command that must succeed.
void run(const char* command);
// An exact figure: the kernel's own counter lags behind by some pages a processor.
long residentKib();
