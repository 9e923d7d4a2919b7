// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "wificond/net/nl80211_attribute.h"

namespace android {
namespace wificond {

// One netlink message as an owned byte array in exactly the kernel's layout: linux/netlink.h,
// struct nlmsghdr; for a generic-netlink message linux/genetlink.h, struct genlmsghdr; then
// attributes. Host byte order. What was received is not trusted: ask IsValid() first; even of a
// message that is not valid nothing outside the array is read.
class NL80211Packet {
  public:
    // A message as received.
    explicit NL80211Packet(const std::vector<uint8_t>& data) : bytes(data) {}
    // A new request, version 1, without attributes.
    NL80211Packet(uint16_t type, uint8_t command, uint32_t sequence, uint32_t portId);

    // Whether the array holds the headers that its type needs and the length that it says; an
    // error line tells why not.
    bool IsValid() const;

    uint16_t GetMessageType() const;
    bool IsMulti() const;
    uint8_t GetCommand() const;
    uint32_t GetMessageSequence() const;
    const std::vector<uint8_t>& GetConstData() const { return bytes; }

    // Appends an attribute and counts it in the message's length, if it has a header to hold that.
    void AddAttribute(const BaseNL80211Attr& attribute);

    // As those of NL80211NestedAttr, for the message's own attributes.
    template <typename T>
    bool GetAttribute(int id, NL80211Attr<T>* attribute) const {
        return attribute->copyFrom(bytes, kAttributesOffset, id);
    }
    bool GetAttribute(int id, NL80211NestedAttr* attribute) const {
        return attribute->copyFrom(bytes, kAttributesOffset, id);
    }
    template <typename T>
    bool GetAttributeValue(int id, T* value) const {
        return readAttributeValue(*this, id, value);
    }

  private:
    static constexpr size_t kAttributesOffset = 20;  // bytes: both headers come first

    std::vector<uint8_t> bytes;
};

}  // namespace wificond
}  // namespace android
