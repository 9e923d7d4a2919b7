// SPDX-License-Identifier: Apache-2.0
#include "rules/command_runner.h"

#include <cstdarg>
#include <cstdio>

#define LNKD_LOG_TAG "DVX-Lnkd-iptablesManager"
#include "core/log.h"

namespace lnkd {

namespace {

constexpr int kLineSize = 1024;  // bytes, NUL included; a longer line is logged in pieces

}  // namespace

int32_t execnetd(const char* command) {
    char line[kLineSize] = {};
    char output[kLineSize] = {};
    snprintf(line, sizeof(line), "%s 2>&1", command);
    // The system shell is the point: wrappers are what the phone lets us call, and callers pass
    // only checked words.
    FILE* const pipe = popen(line, "re");  // NOLINT(cert-env33-c)
    if (pipe == nullptr) {
        LNKD_LOGE("SEND SLA NDC COMMAND - FAIL  %s \n", command);
        return -1;
    }
    LNKD_LOGI("SEND SLA NDC COMMAND - PASS  %s\n", command);
    while (fgets(output, sizeof(output), pipe) != nullptr) {
        LNKD_LOGI(" SLA EXECNETD RESP %s", output);
    }
    pclose(pipe);
    return 0;
}

uint32_t runCommand(const char* format, ...) {
    char command[kCommandSize];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(command, sizeof(command), format, args);
    va_end(args);
    if (length < 0 || length >= kCommandSize) {
        LNKD_LOGE("command of %d characters is too long: %s", length, command);
        return static_cast<uint32_t>(-1);
    }
    return static_cast<uint32_t>(execnetd(command));
}

}  // namespace lnkd
