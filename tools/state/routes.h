// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "state/reading.h"

namespace lnkd {

// A network interface, as far as IPv4 goes.
struct NetworkInterface {
    int index = 0;
    bool isUp = false;                   // somebody has set it up
    bool hasCarrier = true;              // there is something at its other end
    std::vector<std::string> addresses;  // "10.1.1.2/24"
    uint64_t receivedBytes = 0;
    uint64_t sentBytes = 0;
};

// A route for all IPv4 addresses that no other covers, or for half of them: two halves are what
// some VPNs and carriers put in the place of a default route.
struct DefaultRoute {
    uint32_t table = 0;
    int interfaceIndex = 0;
    std::string gateway;    // empty without one
    bool isUsable = false;  // it leads to an interface, and that is not dead
    int half = 0;           // 0 all addresses, 1 or 2 that half of them
};

Reading<std::map<std::string, NetworkInterface>> readInterfaces();
Reading<std::vector<DefaultRoute>> readDefaultRoutes();

// Whether a table leads everywhere.
bool hasDefaultRoute(const std::vector<DefaultRoute>& routes, uint32_t table);

// The names of routing tables.
class RoutingTables {
  public:
    // Reads the files in which `ip` looks, here and on the phone; those that are not there add
    // nothing. Later ones win.
    static RoutingTables read();
    // Adds the names of one file: a number, then a name, a line; "#" begins a comment.
    void add(const std::string& file);

    // The number of a table's name, or of a text that is a number itself.
    std::optional<uint32_t> numberOf(const std::string& name) const;
    // A table's name, or its number as a text.
    std::string nameOf(uint32_t number) const;

  private:
    std::map<std::string, uint32_t> m_numbers = {{"main", 254}, {"local", 255}, {"default", 253}};
};

}  // namespace lnkd
