// SPDX-License-Identifier: Apache-2.0
#include "helpers.h"
#include "wificond/net/netlink_utils.h"

// A client whose kernel sends the input, then the end of its reply.
struct Client : android::wificond::NetlinkUtils {
    Client(const uint8_t* data, size_t size) {
        connectClient(netlinkFd, kernel, data, size);
        const uint32_t done[] = {16, 3, 1, 0};
        send(kernel, done, sizeof(done), 0);
    }
    using NetlinkUtils::DiscoverFamilyId;
    android::base::unique_fd kernel;
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Client discovering(data, size);
    const bool known = discovering.DiscoverFamilyId();
    require(known || discovering.GetFamilyId() == 0);
    require(std::abs(Client(data, size).GetStationInfo("0123456789ab", "lo")) <= 128);
    return 0;
}
