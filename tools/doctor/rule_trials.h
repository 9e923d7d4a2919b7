// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "doctor/need.h"
#include "doctor/private_network.h"

namespace lnkd {

// Whether the packet filter takes each kind of rule that the daemon makes, and the routing policy
// those of the links, tried with the daemon's own tools, as far as these work.
Needs tryRules(const PrivateNetwork& network, bool filterToolWorks, bool routingToolWorks);

}  // namespace lnkd
