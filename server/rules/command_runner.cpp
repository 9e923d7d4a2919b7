// SPDX-License-Identifier: Apache-2.0
#include "rules/command_runner.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "core/stop_request.h"
#include "rules/shell_command.h"

#define LNKD_LOG_TAG "DVX-Lnkd-iptablesManager"
#include "core/log.h"

namespace lnkd {

namespace {

constexpr int kLineSize = 1024;  // bytes, NUL included; a longer line is logged in pieces

std::atomic<bool> takingDown{false};

}  // namespace

int32_t execnetd(const char* command) {
    if (stopRequested() && !takingDown) {
        return -1;
    }
    char line[kLineSize] = {};
    char output[kLineSize] = {};
    snprintf(line, sizeof(line), "%s 2>&1", command);
    // The system shell is the point: wrappers are what the phone lets us call, and callers pass
    // only checked words.
    ShellCommand shell(line);
    if (!shell.started()) {
        LNKD_LOGE("SEND SLA NDC COMMAND - FAIL  %s \n", command);
        return -1;
    }
    LNKD_LOGI("SEND SLA NDC COMMAND - PASS  %s\n", command);
    while (shell.readLine(output, sizeof(output))) {
        LNKD_LOGI(" SLA EXECNETD RESP %s", output);
    }
    if (!shell.finish()) {
        LNKD_LOGE("command did not end in time, killed: %s", command);
        return -1;
    }
    return 0;
}

void runTeardownCommands() {
    takingDown = true;
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
