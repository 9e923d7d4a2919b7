// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "control/message.h"

namespace lnkd {

// What the session does with a line.
enum class Action {
    kNone,  // blank line or comment
    kSend,  // one message to the daemon
    kWait,  // a pause before the next line is looked at
    kHelp,
    kQuit,
};

// One line of a session, understood and checked.
struct Command {
    Action action = Action::kNone;
    std::string name;  // as the user knows it, for what the session prints
    int32_t id = 0;    // kSend: a MessageId
    std::string text;  // kSend: what the message carries, at most kMessageTextSize - 1 bytes
    int waitMs = 0;    // kWait
};

// Reads one line, without its line end, into `command`.
//
// The daemon answers nothing, so whatever it would skip or refuse is refused here, where
// somebody can still read why. Returns false for a line that is not to be acted on, with what
// is wrong with it in `error`; `command` is then undefined.
bool parseCommand(const std::string& line, Command* command, std::string* error);

// The record that carries a kSend command, unused bytes zero.
msg_t messageOf(const Command& command);

// Whether a command begins with this word.
bool isSessionWord(const std::string& word);

// The commands with their arguments, one a line.
std::string commandHelp();

}  // namespace lnkd
