// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace lnkd {

// Destroys every TCP and UDP socket of an application, given by its UID as decimal text, so that
// it notices at once that its way has changed and connects again.
//
// Returns the result of the UDP part, 0 or a negative errno value, or -1 when socket diagnostics
// could not be opened or the text is no UID of an application: then, and for UID 0, nothing is
// destroyed. Thread-safe; takes no lock.
int killSocketsForUID(const char* uid);

}  // namespace lnkd
