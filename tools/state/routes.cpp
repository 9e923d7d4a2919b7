// SPDX-License-Identifier: Apache-2.0
#include "state/routes.h"

#include <arpa/inet.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

#include "state/route_netlink.h"

namespace lnkd {

namespace {

constexpr const char* kTableFiles[] = {
        "/usr/share/iproute2/rt_tables", "/etc/iproute2/rt_tables",
        "/data/misc/net/rt_tables",  // the phone's
};
constexpr size_t kLargestTableFile = 1024 * 1024;  // bytes

std::string addressText(std::string_view bytes) {
    char text[INET_ADDRSTRLEN] = {};
    return bytes.size() == sizeof(in_addr) &&
                           inet_ntop(AF_INET, bytes.data(), text, sizeof(text)) != nullptr
                   ? text
                   : "";
}

// An attribute that is a text, without the NUL at its end.
std::string textOf(std::string_view value) {
    return std::string(value.substr(0, value.find('\0')));
}

NetworkInterface interfaceOf(const RouteMessage& message, const ifinfomsg& header) {
    NetworkInterface found;
    found.index = header.ifi_index;
    found.isUp = (header.ifi_flags & IFF_UP) != 0;
    found.hasCarrier = (header.ifi_flags & IFF_LOWER_UP) != 0;
    const std::string_view counters = message.attribute(sizeof(header), IFLA_STATS64);
    rtnl_link_stats64 statistics = {};
    memcpy(&statistics, counters.data(), std::min(sizeof(statistics), counters.size()));
    found.receivedBytes = statistics.rx_bytes;
    found.sentBytes = statistics.tx_bytes;
    return found;
}

DefaultRoute routeOf(const RouteMessage& message, const rtmsg& header) {
    constexpr size_t kHeader = sizeof(header);
    DefaultRoute route;
    route.table = message.number(kHeader, RTA_TABLE, header.rtm_table);
    route.interfaceIndex = static_cast<int>(message.number(kHeader, RTA_OIF, 0));
    route.gateway = addressText(message.attribute(kHeader, RTA_GATEWAY));
    // Several next hops come as a list of their own, which does not tell of a single interface.
    const bool leadsOut =
            route.interfaceIndex != 0 || !message.attribute(kHeader, RTA_MULTIPATH).empty();
    route.isUsable = header.rtm_type == RTN_UNICAST && leadsOut &&
                     (header.rtm_flags & (RTNH_F_DEAD | RTNH_F_LINKDOWN)) == 0;
    if (header.rtm_dst_len == 1) {
        const std::string_view to = message.attribute(kHeader, RTA_DST);
        route.half = to.empty() || static_cast<unsigned char>(to[0]) < 128 ? 1 : 2;
    }
    return route;
}

}  // namespace

Reading<std::map<std::string, NetworkInterface>> readInterfaces() {
    Reading<std::map<std::string, NetworkInterface>> found;
    std::map<int, std::string> names;
    found.problem = dumpRouting(
            RTM_GETLINK, AF_UNSPEC, [&found] { found.value.clear(); },
            [&](const RouteMessage& message) {
                ifinfomsg header;
                if (message.header(&header)) {
                    const std::string name = textOf(message.attribute(sizeof(header), IFLA_IFNAME));
                    names[header.ifi_index] = name;
                    found.value[name] = interfaceOf(message, header);
                }
            });
    if (!found.known()) {
        return found;
    }
    found.problem = dumpRouting(
            RTM_GETADDR, AF_INET,
            [&found] {
                for (auto& [name, link] : found.value) {
                    link.addresses.clear();
                }
            },
            [&](const RouteMessage& message) {
                ifaddrmsg header;
                if (!message.header(&header)) {
                    return;
                }
                const auto link = found.value.find(names[static_cast<int>(header.ifa_index)]);
                const std::string address =
                        addressText(message.attribute(sizeof(header), IFA_LOCAL));
                if (link != found.value.end() && !address.empty()) {
                    link->second.addresses.push_back(address + '/' +
                                                     std::to_string(header.ifa_prefixlen));
                }
            });
    if (!found.known()) {
        found.value.clear();  // interfaces without their addresses
    }
    return found;
}

Reading<std::vector<DefaultRoute>> readDefaultRoutes() {
    Reading<std::vector<DefaultRoute>> routes;
    routes.problem = dumpRouting(
            RTM_GETROUTE, AF_INET, [&routes] { routes.value.clear(); },
            [&routes](const RouteMessage& message) {
                rtmsg header;
                if (message.header(&header) && header.rtm_dst_len <= 1 &&
                    header.rtm_family == AF_INET) {
                    routes.value.push_back(routeOf(message, header));
                }
            });
    return routes;
}

bool hasDefaultRoute(const std::vector<DefaultRoute>& routes, uint32_t table) {
    const auto has = [&routes, table](int half) {
        return std::any_of(routes.begin(), routes.end(), [table, half](const DefaultRoute& route) {
            return route.table == table && route.isUsable && route.half == half;
        });
    };
    return has(0) || (has(1) && has(2));
}

RoutingTables RoutingTables::read() {
    RoutingTables tables;
    for (const char* const path : kTableFiles) {
        tables.add(readFile(path, kLargestTableFile).value);
    }
    return tables;
}

void RoutingTables::add(const std::string& file) {
    constexpr char kBlanks[] = " \t\r";
    std::string_view rest = file;
    while (!rest.empty()) {
        const size_t lineEnd = std::min(rest.find('\n'), rest.size());
        std::string_view line = rest.substr(0, lineEnd);
        rest.remove_prefix(std::min(lineEnd + 1, rest.size()));
        line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
        const size_t numberEnd = std::min(line.find_first_of(kBlanks), line.size());
        const auto number = numberOf(std::string(line.substr(0, numberEnd)));
        line.remove_prefix(numberEnd);
        line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
        const std::string name(line.substr(0, line.find_first_of(" \t\r#")));
        if (number.has_value() && !name.empty()) {
            m_numbers[name] = *number;
        }
    }
}

std::optional<uint32_t> RoutingTables::numberOf(const std::string& name) const {
    const auto found = m_numbers.find(name);
    if (found != m_numbers.end()) {
        return found->second;
    }
    const bool isHexadecimal = name.compare(0, 2, "0x") == 0;
    const char* const begin = name.data() + (isHexadecimal ? 2 : 0);
    const char* const end = name.data() + name.size();
    uint32_t number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number, isHexadecimal ? 16 : 10);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::string RoutingTables::nameOf(uint32_t number) const {
    const auto found = std::find_if(m_numbers.begin(), m_numbers.end(),
                                    [number](const auto& entry) { return entry.second == number; });
    return found == m_numbers.end() ? std::to_string(number) : found->first;
}

}  // namespace lnkd
