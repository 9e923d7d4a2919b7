// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace lnkd {

class Parameters;

// Commands of the control socket that change the interfaces and the UID whitelists. They run on
// the control thread, with the command lock held, one at a time; each takes the message's text
// and returns 0, or -1 when what it needs is not there (yet).

// The parameter store that commands use; null until the server has been started.
void setCommandParameters(Parameters* parameters);
Parameters* commandParameters();

// `list` names all interfaces that are up now, comma-separated. What is no longer named is
// removed first, then what is new is added; a repeated list changes nothing. A stop that is asked
// for meanwhile is seen between two names.
int updateInterfaces(const char* list);

// Take one interface into, or out of, the table, the statistics and the rules; nothing for a name
// that the table refuses. The order differs: rules can only be removed while the record that they
// were made from is still there.
int addInterfaces(const char* name);
int removeInterfaces(const char* name);

// `uids` are the applications allowed onto metered links, comma-separated, or "NULL" for none. A
// text that equals the previous one is ignored.
int setUidWhitelist(const char* uids);

// The same for the applications allowed onto the second Wi-Fi.
int setDblWlanUidWhitelist(const char* uids);

}  // namespace lnkd
