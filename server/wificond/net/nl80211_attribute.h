// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace android {
namespace wificond {

// Netlink attributes as owned byte arrays in exactly the kernel's layout, linux/netlink.h: struct
// nlattr, a header of four bytes (length without padding, type; host byte order), then the payload,
// padded with zeros to a multiple of four. What was received is not trusted: nothing outside the
// array is read, and a search ends with the array.

// A length rounded up to the alignment of attributes.
constexpr size_t alignedAttributeLength(size_t length) {
    return (length + 3U) & ~static_cast<size_t>(3U);
}

constexpr size_t kAttributeHeaderSize = 4;  // bytes

// One attribute, whatever it holds.
class BaseNL80211Attr {
  public:
    // An attribute that carries `payload`.
    BaseNL80211Attr(int id, const std::vector<uint8_t>& payload);
    virtual ~BaseNL80211Attr() = default;
    BaseNL80211Attr(const BaseNL80211Attr&) = default;
    BaseNL80211Attr& operator=(const BaseNL80211Attr&) = default;
    BaseNL80211Attr(BaseNL80211Attr&&) = default;
    BaseNL80211Attr& operator=(BaseNL80211Attr&&) = default;

    // Whether the array holds one whole attribute and nothing else.
    virtual bool IsValid() const;

    const std::vector<uint8_t>& GetConstData() const { return bytes; }

    // Makes room for a payload of `payloadLength` bytes, new bytes zero, and writes the header.
    void InitHeaderAndResize(int id, int payloadLength);

    // Finds the first attribute `id` in a run of attributes and gives its bounds, padding
    // included. False when there is none, and, with an error line, when it does not fit the run.
    static bool GetAttributeImpl(const uint8_t* buffer, size_t length, int id, uint8_t** start,
                                 uint8_t** end);

  protected:
    BaseNL80211Attr() = default;

    // Copies the first attribute `id` of those that `held` has from `offset` on; whether there is
    // one and it is valid.
    bool copyFrom(const std::vector<uint8_t>& held, size_t offset, int id);

    // Length from the header, 0 when there is none.
    uint16_t attributeLength() const;
    const uint8_t* payload() const { return bytes.data() + kAttributeHeaderSize; }

    std::vector<uint8_t> bytes;

    friend class NL80211Packet;
    friend class NL80211NestedAttr;
};

// An attribute with a value of type T: unsigned short, unsigned int, signed char or std::string.
// The value of an attribute that is not valid must not be asked for.
template <typename T>
class NL80211Attr : public BaseNL80211Attr {
  public:
    NL80211Attr() = default;
    NL80211Attr(int id, T value);
    // A complete attribute, as received.
    explicit NL80211Attr(const std::vector<uint8_t>& data) { bytes = data; }

    bool IsValid() const override;
    T GetValue() const;
};

// A text: its characters and one NUL. What is received may have more of them, or none.
template <>
class NL80211Attr<std::string> : public BaseNL80211Attr {
  public:
    NL80211Attr() = default;
    NL80211Attr(int id, const std::string& value);
    explicit NL80211Attr(const std::vector<uint8_t>& data) { bytes = data; }

    std::string GetValue() const;
};

// The value of attribute `id` of a packet or a list; false leaves `value` as it is.
template <typename Holder, typename T>
bool readAttributeValue(const Holder& holder, int id, T* value) {
    NL80211Attr<T> attribute;
    if (!holder.GetAttribute(id, &attribute)) {
        return false;
    }
    *value = attribute.GetValue();
    return true;
}

// An attribute whose payload is a list of attributes.
class NL80211NestedAttr : public BaseNL80211Attr {
  public:
    explicit NL80211NestedAttr(int id) { InitHeaderAndResize(id, 0); }
    explicit NL80211NestedAttr(const std::vector<uint8_t>& data) { bytes = data; }

    // Copies the first attribute `id` of the list into `attribute`; whether it was found and is
    // valid. One that is not valid has been copied all the same.
    template <typename T>
    bool GetAttribute(int id, NL80211Attr<T>* attribute) const {
        return attribute->copyFrom(bytes, kAttributeHeaderSize, id);
    }

    template <typename T>
    bool GetAttributeValue(int id, T* value) const {
        return readAttributeValue(*this, id, value);
    }

    // Replaces `list` by the attributes of the payload; false, and no change, when one of them
    // is broken.
    bool GetListOfNestedAttributes(std::vector<NL80211NestedAttr>* list) const;
};

}  // namespace wificond
}  // namespace android
