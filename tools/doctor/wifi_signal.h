// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "doctor/need.h"

namespace lnkd {

// Whether the kernel tells how strong a Wi-Fi's signal is, and whether the driver of each of these
// interfaces does.
Needs examineSignal(const std::vector<std::string>& wifis);

// Whether an interface is a Wi-Fi.
bool isWifi(const std::string& interface);

}  // namespace lnkd
