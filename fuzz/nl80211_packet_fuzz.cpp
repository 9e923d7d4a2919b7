// SPDX-License-Identifier: Apache-2.0
#include "wificond/net/nl80211_packet.h"

#include "helpers.h"

using namespace android::wificond;

static void look(const NL80211NestedAttr& attribute) {
    NL80211Attr<signed char> signal;
    std::string name;
    require(!attribute.GetAttribute(7, &signal) || signal.GetConstData()[0] == 5);
    require(!attribute.GetAttributeValue(1, &name) || name.empty() || name.back() != '\0');
    std::vector<NL80211NestedAttr> list;
    attribute.GetListOfNestedAttributes(&list);
    std::for_each(list.begin(), list.end(), look);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const NL80211Packet packet({data, data + size});
    require(!packet.IsValid() || size >= (packet.GetMessageType() < 16 ? 16 : 20));
    require(packet.GetCommand() == (size > 16 ? data[16] : 0));
    NL80211NestedAttr nested(0);
    if (packet.GetAttribute(7, &nested) || packet.GetAttribute(21, &nested))
        look(nested);
    return 0;
}
