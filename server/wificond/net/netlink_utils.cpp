// SPDX-License-Identifier: Apache-2.0
#include "wificond/net/netlink_utils.h"

#define LOG_TAG "dvx-netlink"
#include <android-base/logging.h>
#include <android/log.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace android {
namespace wificond {

namespace {

constexpr size_t kReceiveSize = 8192;  // bytes of a datagram, and of the socket's buffer
constexpr nsecs_t kBudgetNs = 1000000000;
constexpr nsecs_t kNsPerMs = 1000000;
constexpr nsecs_t kLookIntervalMs = 20;  // at most until a cancelled query ends
constexpr char kFamilyName[] = NL80211_GENL_NAME;

void logSetupError(const char* text) {
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "%s", text);
}

}  // namespace

NetlinkUtils* NetlinkUtils::instance() {
    static auto* const utils = new NetlinkUtils;  // lives as long as the process
    return utils;
}

bool NetlinkUtils::Start() {
    cancelled = false;
    if (!SetupSocket(&netlinkFd)) {
        logSetupError("Failed to setup synchronous netlink socket");
        return false;
    }
    return DiscoverFamilyId();
}

void NetlinkUtils::Cancel() {
    cancelled = true;
}

bool NetlinkUtils::SetupSocket(base::unique_fd* fd) {
    fd->reset(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_GENERIC));
    if (!fd->ok()) {
        logSetupError("Failed to create netlink socket");
        return false;
    }
    const int size = kReceiveSize;
    if (setsockopt(fd->get(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) < 0) {
        logSetupError("Failed to set uevent socket SO_RCVBUFFORCE option");
        return false;
    }
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    if (bind(fd->get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0) {
        logSetupError("Failed to bind netlink socket");
        return false;
    }
    return true;
}

bool NetlinkUtils::DiscoverFamilyId() {
    NL80211Packet request(GENL_ID_CTRL, CTRL_CMD_GETFAMILY, nextSequence(),
                          static_cast<uint32_t>(getpid()));
    request.AddAttribute(NL80211Attr<std::string>(CTRL_ATTR_FAMILY_NAME, kFamilyName));
    std::unique_ptr<const NL80211Packet> response;
    if (!SendMessageAndGetSingleResponse(request, &response)) {
        LOG(ERROR) << "Failed to get NL80211 family info";
        return false;
    }
    OnNewFamily(std::move(response));
    if (families.count(kFamilyName) == 0) {
        LOG(ERROR) << "Failed to get NL80211 family id";
        return false;
    }
    return true;
}

void NetlinkUtils::OnNewFamily(std::unique_ptr<const NL80211Packet> packet) {
    if (packet->GetMessageType() != GENL_ID_CTRL) {
        LOG(ERROR) << "Wrong message type for new family message";
        return;
    }
    if (packet->GetCommand() != CTRL_CMD_NEWFAMILY) {
        LOG(ERROR) << "Wrong command for new family message";
        return;
    }
    NL80211Attr<unsigned short> id;
    if (!packet->GetAttribute(CTRL_ATTR_FAMILY_ID, &id)) {
        LOG(ERROR) << "Failed to get family id";
        return;
    }
    std::string name;
    if (!packet->GetAttributeValue(CTRL_ATTR_FAMILY_NAME, &name)) {
        LOG(ERROR) << "Failed to get family name";
        return;
    }
    if (name != kFamilyName) {
        LOG(WARNING) << "Ignoring none nl80211 netlink families";
        return;
    }
    MessageType& family = families[name] = MessageType{id.GetValue(), {}};
    NL80211NestedAttr groups(0);
    std::vector<NL80211NestedAttr> list;
    if (!packet->GetAttribute(CTRL_ATTR_MCAST_GROUPS, &groups) ||
        !groups.GetListOfNestedAttributes(&list)) {
        return;
    }
    for (const NL80211NestedAttr& group : list) {
        std::string groupName;
        NL80211Attr<unsigned int> groupId;
        if (!group.GetAttributeValue(CTRL_ATTR_MCAST_GRP_NAME, &groupName)) {
            LOG(ERROR) << "Failed to get group name";
        } else if (!group.GetAttribute(CTRL_ATTR_MCAST_GRP_ID, &groupId)) {
            LOG(ERROR) << "Failed to get group id";
        } else {
            family.multicastGroups[groupName] = groupId.GetValue();
        }
    }
}

uint16_t NetlinkUtils::GetFamilyId() {
    return families[kFamilyName].familyId;
}

int32_t NetlinkUtils::GetStationInfo(const char* mac, const char* ifname) {
    NL80211Packet request(GetFamilyId(), NL80211_CMD_GET_STATION, nextSequence(),
                          static_cast<uint32_t>(getpid()));
    if (!SetStationInfo(mac, ifname)) {
        return 0;
    }
    request.AddAttribute(NL80211Attr<unsigned int>(NL80211_ATTR_IFINDEX, stationIfIndex));
    request.AddAttribute(BaseNL80211Attr(
            NL80211_ATTR_MAC, std::vector<uint8_t>(stationMac.begin(), stationMac.end())));
    std::unique_ptr<const NL80211Packet> response;
    if (!SendMessageAndGetSingleResponse(request, &response)) {
        LOG(ERROR) << "NL80211_CMD_GET_STATION failed";
        return 0;
    }
    if (response->GetCommand() != NL80211_CMD_NEW_STATION) {
        LOG(ERROR) << "Wrong command in response to a get station request: "
                   << static_cast<int>(response->GetCommand());
        return 0;
    }
    NL80211NestedAttr station(0);
    if (!response->GetAttribute(NL80211_ATTR_STA_INFO, &station)) {
        LOG(ERROR) << "Failed to get NL80211_ATTR_STA_INFO";
        return 0;
    }
    NL80211Attr<signed char> signal;
    if (!station.GetAttribute(NL80211_STA_INFO_SIGNAL, &signal)) {
        LOG(ERROR) << "Failed to get NL80211_STA_INFO_SIGNAL";
        return 0;
    }
    return signal.GetValue();
}

bool NetlinkUtils::SetStationInfo(const char* mac, const char* ifname) {
    const std::string digits = mac;
    if (digits.size() < 2 * stationMac.size()) {
        LOG(ERROR) << "Not the MAC address of a station: " << digits;
        return false;
    }
    stationIfIndex = if_nametoindex(ifname);
    for (size_t i = 0; i < stationMac.size(); ++i) {
        stationMac[i] = static_cast<uint8_t>(strtol(digits.substr(2 * i, 2).c_str(), nullptr, 16));
    }
    return true;
}

bool NetlinkUtils::SendMessageAndGetResponses(
        const NL80211Packet& packet, std::vector<std::unique_ptr<const NL80211Packet>>* responses) {
    if (!SendMessageInternal(packet, netlinkFd.get())) {
        return false;
    }
    const uint32_t sequence = packet.GetMessageSequence();
    responseHandlers[sequence] = [responses](std::unique_ptr<const NL80211Packet> response) {
        AppendPacket(responses, std::move(response));
    };
    const bool complete = waitForResponses(sequence);
    responseHandlers.erase(sequence);
    return complete;
}

bool NetlinkUtils::waitForResponses(uint32_t sequence) {
    // One deadline for the whole exchange: an endless multipart reply ends with it.
    const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + kBudgetNs;
    for (;;) {
        const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
        if (left <= 0) {
            LOG(ERROR) << "Timeout waiting for netlink reply messages";
            return false;
        }
        if (responseHandlers.count(sequence) == 0) {
            return true;
        }
        if (cancelled) {
            return false;
        }
        pollfd polled{netlinkFd.get(), POLLIN, 0};
        const nsecs_t leftMs = (left + kNsPerMs - 1) / kNsPerMs;
        const int ready = poll(&polled, 1, static_cast<int>(std::min(leftMs, kLookIntervalMs)));
        if (ready < 0) {
            PLOG(ERROR) << "Failed to poll netlink fd";
            return false;
        }
        if (ready == 0 && leftMs > kLookIntervalMs) {
            continue;
        }
        if (ready == 0) {
            LOG(ERROR) << "Failed to poll netlink fd: time out ";
            return false;
        }
        ReceivePacketAndRunHandler(netlinkFd.get());
    }
}

bool NetlinkUtils::SendMessageAndGetSingleResponse(const NL80211Packet& packet,
                                                   std::unique_ptr<const NL80211Packet>* response) {
    std::vector<std::unique_ptr<const NL80211Packet>> responses;
    if (!SendMessageAndGetResponses(packet, &responses) || responses.empty()) {
        return false;
    }
    *response = std::move(responses.front());
    return true;
}

bool NetlinkUtils::SendMessageInternal(const NL80211Packet& packet, int fd) {
    const std::vector<uint8_t>& data = packet.GetConstData();
    ssize_t sent = 0;
    do {
        sent = sendto(fd, data.data(), data.size(), 0, nullptr, 0);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) {
        PLOG(ERROR) << "Failed to send netlink message";
        return false;
    }
    return true;
}

void NetlinkUtils::ReceivePacketAndRunHandler(int fd) {
    static uint8_t buffer[kReceiveSize];
    const ssize_t received = read(fd, buffer, sizeof(buffer));
    if (received < 0) {
        LOG(ERROR) << "Failed to read packet from buffer";
        return;
    }
    const uint8_t* message = buffer;
    auto left = static_cast<size_t>(received);
    while (left > 0) {
        nlmsghdr header{};
        if (left < sizeof(header)) {
            LOG(ERROR) << "payload is broken.";
            return;
        }
        memcpy(&header, message, sizeof(header));
        const size_t length = std::min<size_t>(header.nlmsg_len, left);
        auto packet = std::make_unique<const NL80211Packet>(
                std::vector<uint8_t>(message, message + length));
        if (!packet->IsValid()) {
            LOG(ERROR) << "Receive invalid packet";
            return;
        }
        if (!handlePacket(std::move(packet))) {
            return;
        }
        message += length;
        left -= length;
    }
}

bool NetlinkUtils::handlePacket(std::unique_ptr<const NL80211Packet> packet) {
    const uint32_t sequence = packet->GetMessageSequence();
    if (sequence == 0) {
        return true;  // a multicast notification
    }
    const auto handler = responseHandlers.find(sequence);
    if (handler == responseHandlers.end()) {
        LOG(WARNING) << "No handler for message: " << sequence;
        return false;
    }
    const uint16_t type = packet->GetMessageType();
    if (type == NLMSG_NOOP || type == NLMSG_DONE) {
        responseHandlers.erase(handler);
        return false;
    }
    if (type == NLMSG_OVERRUN) {
        LOG(ERROR) << "Get message overrun notification";
        responseHandlers.erase(handler);
        return false;
    }
    const bool more = packet->IsMulti();
    handler->second(std::move(packet));
    if (!more) {
        responseHandlers.erase(handler);
    }
    return true;
}

uint32_t NetlinkUtils::nextSequence() {
    if (++lastSequence == 0) {
        lastSequence = 1;
    }
    return lastSequence;
}

void AppendPacket(std::vector<std::unique_ptr<const NL80211Packet>>* responses,
                  std::unique_ptr<const NL80211Packet> packet) {
    responses->push_back(std::move(packet));
}

}  // namespace wificond
}  // namespace android
