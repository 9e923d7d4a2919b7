// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "doctor/need.h"
#include "doctor/private_network.h"

namespace lnkd {

// Whether the kernel lists and destroys sockets.
Needs trySockets(const PrivateNetwork& network);

}  // namespace lnkd
