// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace lnkd {

// A configuration file with every key: what it means, and its default. As it stands it changes
// nothing.
std::string defaultFile();

}  // namespace lnkd
