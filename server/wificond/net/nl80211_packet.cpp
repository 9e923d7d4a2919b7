// SPDX-License-Identifier: Apache-2.0
#include "wificond/net/nl80211_packet.h"

#include <android-base/logging.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>

#include <algorithm>
#include <cstring>

namespace android {
namespace wificond {

namespace {

constexpr size_t kErrorSize = sizeof(nlmsghdr) + sizeof(int32_t);
constexpr size_t kCommandOffset = sizeof(nlmsghdr);

static_assert(sizeof(nlmsghdr) == 16 && sizeof(genlmsghdr) == 4);

// The message's header; missing bytes of it are zero.
nlmsghdr headerOf(const std::vector<uint8_t>& bytes) {
    nlmsghdr header{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof(header)),
                reinterpret_cast<uint8_t*>(&header));
    return header;
}

}  // namespace

NL80211Packet::NL80211Packet(uint16_t type, uint8_t command, uint32_t sequence, uint32_t portId)
    : bytes(kAttributesOffset, 0) {
    static_assert(kAttributesOffset == sizeof(nlmsghdr) + sizeof(genlmsghdr));
    nlmsghdr header{};
    header.nlmsg_len = kAttributesOffset;
    header.nlmsg_type = type;
    header.nlmsg_flags = NLM_F_REQUEST;
    header.nlmsg_seq = sequence;
    header.nlmsg_pid = portId;
    const genlmsghdr family{command, 1, 0};
    memcpy(bytes.data(), &header, sizeof(header));
    memcpy(bytes.data() + sizeof(header), &family, sizeof(family));
}

bool NL80211Packet::IsValid() const {
    if (bytes.size() < sizeof(nlmsghdr)) {
        LOG(ERROR) << "Cannot retrieve netlink header.";
        return false;
    }
    const nlmsghdr header = headerOf(bytes);
    if (header.nlmsg_type >= NLMSG_MIN_TYPE &&
        (bytes.size() < kAttributesOffset || header.nlmsg_len < kAttributesOffset)) {
        LOG(ERROR) << "Cannot retrieve generic netlink header.";
        return false;
    }
    if (header.nlmsg_type == NLMSG_ERROR &&
        (bytes.size() < kErrorSize || header.nlmsg_len < kErrorSize)) {
        LOG(ERROR) << "Broken error message.";
        return false;
    }
    if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > bytes.size()) {
        LOG(ERROR) << "Discarding incomplete / invalid message.";
        return false;
    }
    return true;
}

uint16_t NL80211Packet::GetMessageType() const {
    return headerOf(bytes).nlmsg_type;
}

bool NL80211Packet::IsMulti() const {
    return (headerOf(bytes).nlmsg_flags & NLM_F_MULTI) != 0;
}

uint8_t NL80211Packet::GetCommand() const {
    return bytes.size() <= kCommandOffset ? uint8_t{0} : bytes[kCommandOffset];
}

uint32_t NL80211Packet::GetMessageSequence() const {
    return headerOf(bytes).nlmsg_seq;
}

void NL80211Packet::AddAttribute(const BaseNL80211Attr& attribute) {
    if (bytes.size() < sizeof(nlmsghdr)) {
        return;
    }
    const std::vector<uint8_t>& added = attribute.GetConstData();
    bytes.insert(bytes.end(), added.begin(), added.end());
    nlmsghdr header = headerOf(bytes);
    header.nlmsg_len += static_cast<uint32_t>(added.size());
    memcpy(bytes.data(), &header, sizeof(header));
}

}  // namespace wificond
}  // namespace android
