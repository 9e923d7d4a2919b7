// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "control/message.h"

namespace lnkd {

class Parameters;

// The control socket's server: one thread that accepts one connection, the framework's, and
// serves it for the life of the process. It takes one message each ping_interval_ms and runs its
// handler to the end, with the command lock held, before it takes the next. Nothing is sent back.

// Starts the server thread and lets handlers use `parameters`, which must outlive the process's
// threads. Returns the thread's identifier, -1 when it could not be started: the daemon then runs
// on without control. Called once.
long createSocketThreads(Parameters* parameters);

// Creates the listening socket at `path`, replacing what was left there, open to every local
// process. Returns its descriptor, which the caller owns, or -1.
int createSocket(const char* path);

// The body of the server thread; its argument is not used.
void* socketThreadHandle(void* unused);

// Runs the command of one message. Takes the command lock; after stopHandlingMessages() it does
// nothing but say so.
void handleMessage(const msg_t& msg);

// Waits for the command in hand and makes later ones no-ops, so that nothing is built again
// behind a teardown's back.
void stopHandlingMessages();

// Closes the listening socket, if it is open. The thread keeps its connection until the process
// ends.
void stopSocketThreads();

}  // namespace lnkd
