// SPDX-License-Identifier: Apache-2.0
#include "wificond/net/nl80211_attribute.h"

#include <android-base/logging.h>
#include <linux/netlink.h>

#include <cstring>

namespace android {
namespace wificond {

namespace {

// Header of the attribute at `data`, of which kAttributeHeaderSize bytes are there.
nlattr headerAt(const uint8_t* data) {
    nlattr header{};
    memcpy(&header, data, sizeof(header));
    return header;
}

}  // namespace

static_assert(sizeof(nlattr) == kAttributeHeaderSize);

BaseNL80211Attr::BaseNL80211Attr(int id, const std::vector<uint8_t>& payload) {
    InitHeaderAndResize(id, static_cast<int>(payload.size()));
    if (!payload.empty()) {
        memcpy(bytes.data() + kAttributeHeaderSize, payload.data(), payload.size());
    }
}

bool BaseNL80211Attr::IsValid() const {
    return bytes.size() >= kAttributeHeaderSize &&
           bytes.size() == alignedAttributeLength(attributeLength());
}

void BaseNL80211Attr::InitHeaderAndResize(int id, int payloadLength) {
    const auto length = static_cast<size_t>(payloadLength);
    bytes.resize(kAttributeHeaderSize + alignedAttributeLength(length), 0);
    const nlattr header{static_cast<uint16_t>(length + kAttributeHeaderSize),
                        static_cast<uint16_t>(id)};
    memcpy(bytes.data(), &header, sizeof(header));
}

uint16_t BaseNL80211Attr::attributeLength() const {
    return bytes.size() < kAttributeHeaderSize ? uint16_t{0} : headerAt(bytes.data()).nla_len;
}

bool BaseNL80211Attr::GetAttributeImpl(const uint8_t* buffer, size_t length, int id,
                                       uint8_t** start, uint8_t** end) {
    size_t offset = 0;
    while (length - offset >= kAttributeHeaderSize) {
        const nlattr header = headerAt(buffer + offset);
        const size_t size = alignedAttributeLength(header.nla_len);
        // A length that does not even hold the header would not bring the walk on.
        if (header.nla_len < kAttributeHeaderSize) {
            return false;
        }
        if (header.nla_type == id) {
            if (size > length - offset) {
                LOG(ERROR) << "Failed to get attribute: broken nl80211 atrribute.";
                return false;
            }
            if (start != nullptr && end != nullptr) {
                *start = const_cast<uint8_t*>(buffer) + offset;
                *end = *start + size;
            }
            return true;
        }
        if (size > length - offset) {
            return false;
        }
        offset += size;
    }
    return false;
}

bool BaseNL80211Attr::copyFrom(const std::vector<uint8_t>& held, size_t offset, int id) {
    uint8_t* start = nullptr;
    uint8_t* end = nullptr;
    if (held.size() < offset ||
        !GetAttributeImpl(held.data() + offset, held.size() - offset, id, &start, &end)) {
        return false;
    }
    bytes.assign(start, end);
    return IsValid();
}

template <>
NL80211Attr<unsigned short>::NL80211Attr(int id, unsigned short value) {
    InitHeaderAndResize(id, sizeof(value));
    memcpy(bytes.data() + kAttributeHeaderSize, &value, sizeof(value));
}

template <>
NL80211Attr<unsigned int>::NL80211Attr(int id, unsigned int value) {
    InitHeaderAndResize(id, sizeof(value));
    memcpy(bytes.data() + kAttributeHeaderSize, &value, sizeof(value));
}

template <>
NL80211Attr<signed char>::NL80211Attr(int id, signed char value) {
    InitHeaderAndResize(id, sizeof(value));
    memcpy(bytes.data() + kAttributeHeaderSize, &value, sizeof(value));
}

// Each of the integers fits one padded word.
template <typename T>
bool NL80211Attr<T>::IsValid() const {
    return BaseNL80211Attr::IsValid() && attributeLength() == kAttributeHeaderSize + sizeof(T);
}

template <typename T>
T NL80211Attr<T>::GetValue() const {
    T value{};
    memcpy(&value, payload(), sizeof(value));
    return value;
}

template class NL80211Attr<unsigned short>;
template class NL80211Attr<unsigned int>;
template class NL80211Attr<signed char>;

NL80211Attr<std::string>::NL80211Attr(int id, const std::string& value) {
    InitHeaderAndResize(id, static_cast<int>(value.size()) + 1);
    memcpy(bytes.data() + kAttributeHeaderSize, value.data(), value.size());
}

std::string NL80211Attr<std::string>::GetValue() const {
    const size_t length = attributeLength();
    if (length <= kAttributeHeaderSize || bytes.size() < length) {
        return {};
    }
    std::string value(reinterpret_cast<const char*>(payload()), length - kAttributeHeaderSize);
    value.erase(value.find_last_not_of('\0') + 1);
    return value;
}

bool NL80211NestedAttr::GetListOfNestedAttributes(std::vector<NL80211NestedAttr>* list) const {
    std::vector<NL80211NestedAttr> found;
    size_t offset = kAttributeHeaderSize;
    while (offset + kAttributeHeaderSize <= bytes.size()) {
        const size_t size = alignedAttributeLength(headerAt(bytes.data() + offset).nla_len);
        if (size > bytes.size() - offset) {
            LOG(ERROR) << "Failed to get list of nested attributes: invalid nla_len.";
            return false;
        }
        const uint8_t* const start = bytes.data() + offset;
        found.emplace_back(std::vector<uint8_t>(start, start + size));
        if (!found.back().IsValid()) {
            return false;
        }
        offset += size;
    }
    *list = std::move(found);
    return true;
}

}  // namespace wificond
}  // namespace android
