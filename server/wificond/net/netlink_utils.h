// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android-base/unique_fd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "wificond/net/nl80211_packet.h"

namespace android {
namespace wificond {

// What the control family knows of a family.
struct MessageType {
    uint16_t familyId = 0;
    std::map<std::string, uint32_t> multicastGroups;
};

// Client of the kernel's generic-netlink bus that answers one question: how strong is the signal
// of the access point that a Wi-Fi interface is associated with.
//
// linux/genetlink.h and linux/nl80211.h. One thread at a time; a reply is waited for, for 1000 ms
// in all. What the kernel sends is not trusted.
class NetlinkUtils {
  public:
    static NetlinkUtils* instance();

    NetlinkUtils(const NetlinkUtils&) = delete;
    NetlinkUtils& operator=(const NetlinkUtils&) = delete;

    // Opens the socket and learns the number of the nl80211 family; false, with an error line,
    // when there is no socket or no number, not even one from before. May be called again, and
    // then does both anew.
    bool Start();

    // Signal strength in dBm of the access point `mac`, 12 hexadecimal digits, on `ifname`; 0,
    // after an error line, when there is no reading.
    int32_t GetStationInfo(const char* mac, const char* ifname);

    // Ends the query in hand, and each one until the next Start(), within 20 ms and with no
    // reading. The one operation that another thread may call meanwhile.
    void Cancel();

    // Number of the nl80211 family, 0 when it is not known: nobody answers then.
    uint16_t GetFamilyId();

  protected:
    NetlinkUtils() = default;
    ~NetlinkUtils() = default;

    // Asks the control family for the number of nl80211; false, with an error line, when it gives
    // none and none is on record.
    bool DiscoverFamilyId();

    // Sends a request and collects its replies in order; false, with an error line, when they are
    // not complete within 1000 ms.
    bool SendMessageAndGetResponses(const NL80211Packet& packet,
                                    std::vector<std::unique_ptr<const NL80211Packet>>* responses);
    // The same for the first reply, whatever type it has; false leaves `response` as it is.
    bool SendMessageAndGetSingleResponse(const NL80211Packet& packet,
                                         std::unique_ptr<const NL80211Packet>* response);
    // Takes what one datagram holds to the handlers of the requests that it answers.
    void ReceivePacketAndRunHandler(int fd);

    base::unique_fd netlinkFd;

  private:
    using Handler = std::function<void(std::unique_ptr<const NL80211Packet>)>;

    static bool SetupSocket(base::unique_fd* fd);
    void OnNewFamily(std::unique_ptr<const NL80211Packet> packet);
    // False, after an error line, when `mac` has less than 12 characters.
    bool SetStationInfo(const char* mac, const char* ifname);
    static bool SendMessageInternal(const NL80211Packet& packet, int fd);
    // Waits for the replies of a registered request.
    bool waitForResponses(uint32_t sequence);
    // Takes one valid message to its handler; false ends its datagram.
    bool handlePacket(std::unique_ptr<const NL80211Packet> packet);
    // Never 0: that is what the kernel's own notifications carry.
    uint32_t nextSequence();

    std::map<uint32_t, Handler> responseHandlers;  // by sequence number, while a reply is expected
    std::map<std::string, MessageType> families;
    std::array<uint8_t, 6> stationMac{};  // of the station last asked about
    std::atomic<bool> cancelled{false};
    uint32_t lastSequence = 0;
    uint32_t stationIfIndex = 0;
};

// Appends a packet to the replies of a request.
void AppendPacket(std::vector<std::unique_ptr<const NL80211Packet>>* responses,
                  std::unique_ptr<const NL80211Packet> packet);

}  // namespace wificond
}  // namespace android
