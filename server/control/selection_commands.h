// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace lnkd {

// Commands of the control socket that start and stop link selection. They run on the control
// thread, with the command lock held, one at a time; each returns 0, or -1 when the parameter
// store is not there (yet) or the text was refused. A game and a call share the engine, the rules
// and the UID list: whichever starts last sets the UIDs, and either stop ends it all.

// The framework reports a round-trip time, decimal ms. One above rtt_exit_threshold starts the
// probes; nothing but the end of a game or a call stops them.
int updateSlsInterfacesRtt(const char* text);

// A game starts; `uids` are its applications, comma-separated. Ignored while one runs.
int StartSlsServer(const char* uids);

// The game ended. The UIDs stay known, for the teardown.
int StopSlsServer();

// A call starts, `text` being its application's UID, or ended, when it is "0". Ignored when that
// is so already.
int setVoipStatus(const char* text);

}  // namespace lnkd
