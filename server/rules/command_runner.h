// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace lnkd {

// Longest command line, NUL included, in bytes.
constexpr int kCommandSize = 512;

// Runs one packet-filter or routing command line through the system shell and copies what it
// prints to the log.
//
// `command` is a whole command line without redirection. It must hold only words that the caller
// has validated: the shell splits and interprets it. Blocks until the command has ended and its
// output is read, for 10 s at most, and for 1 s once a stop was asked for; then it is killed, with
// all that it started, and an error line names it.
//
// Returns 0 when the command ran, whatever its exit status, and -1 when no shell could be started
// (no memory, no process slot), or when it was killed. Once a stop was asked for, commands are not
// run any more, and the result is -1: what they would build is taken down at once. Thread-safe.
int32_t execnetd(const char* command);

// From here on commands are run again although a stop was asked for: they are the teardown's.
void runTeardownCommands();

// Formats a command line, printf-style, and runs it with execnetd(). One that does not fit
// kCommandSize is not run: an error line, -1. The result is unsigned because callers add up the
// results of an operation's commands and take any sum but 0 for a failure.
uint32_t runCommand(const char* format, ...) __attribute__((__format__(printf, 1, 2)));

}  // namespace lnkd
