// SPDX-License-Identifier: Apache-2.0
#include "doctor/wifi_signal.h"

#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "doctor/quiet_log.h"
#include "wificond/net/netlink_utils.h"

namespace lnkd {

namespace {

using android::wificond::NetlinkUtils;
using android::wificond::NL80211Attr;
using android::wificond::NL80211NestedAttr;
using android::wificond::NL80211Packet;

// The daemon asks for the station that a client has named. Here nobody names one, so the driver is
// asked for all.
class StationList : public NetlinkUtils {
  public:
    // What the driver of an interface says.
    Need signalOf(const std::string& interface, const Need& need) {
        const uint32_t sequence = ++m_sequence;
        NL80211Packet request(GetFamilyId(), NL80211_CMD_GET_STATION, sequence,
                              static_cast<uint32_t>(getpid()));
        request.AddAttribute(
                NL80211Attr<unsigned int>(NL80211_ATTR_IFINDEX, if_nametoindex(interface.c_str())));
        std::vector<std::unique_ptr<const NL80211Packet>> stations;
        if (!SendMessageAndGetResponses(asDump(request), &stations)) {
            return need.missing(interface + ": no answer of the driver");
        }
        if (stations.empty()) {
            return need.unknown(interface + ": not connected to an access point");
        }
        NL80211NestedAttr station(0);
        NL80211Attr<signed char> signal;
        if (stations[0]->GetMessageType() == NLMSG_ERROR ||
            !stations[0]->GetAttribute(NL80211_ATTR_STA_INFO, &station) ||
            !station.GetAttribute(NL80211_STA_INFO_SIGNAL, &signal)) {
            return need.missing(interface + ": the driver does not tell");
        }
        return need.met(interface + ": " + std::to_string(signal.GetValue()) + " dBm");
    }

  private:
    static NL80211Packet asDump(const NL80211Packet& request) {
        std::vector<uint8_t> bytes = request.GetConstData();
        nlmsghdr header;
        memcpy(&header, bytes.data(), sizeof(header));
        header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        memcpy(bytes.data(), &header, sizeof(header));
        return NL80211Packet(bytes);
    }

    uint32_t m_sequence = 1000;  // above those that learning the family has taken
};

}  // namespace

Needs examineSignal(const std::vector<std::string>& wifis) {
    constexpr char kWithout[] = "a weak signal does not count as a slower link";
    const Need family{"Wi-Fi signal", "nl80211", true, kWithout,
                      "a kernel with CONFIG_CFG80211, and a Wi-Fi's driver"};
    const QuietLog quiet;
    StationList list;
    if (!list.Start()) {
        return {family.missing("nl80211: the kernel does not have it")};
    }
    Needs needs = {family.met("nl80211")};
    for (const std::string& wifi : wifis) {
        const Need need{"Wi-Fi signal", wifi, true, kWithout, "look at the Wi-Fi's driver"};
        needs.push_back(list.signalOf(wifi, need));
    }
    return needs;
}

bool isWifi(const std::string& interface) {
    return access(("/sys/class/net/" + interface + "/phy80211").c_str(), F_OK) == 0;
}

}  // namespace lnkd
