// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace lnkd {

// The entries of a UID list that may be part of a rule, in order; each of the others is reported
// in one error line. Lists hold what a client wrote.
std::vector<std::string> usableUids(const std::vector<std::string>& entries);

}  // namespace lnkd
