// SPDX-License-Identifier: Apache-2.0
#include "net/sock_diag.h"

#include "helpers.h"

// A client whose kernel sends the input, as a dump and in answer to what is to be destroyed.
struct Client : android::net::SockDiag {
    // All that both walks show, the second of what the first leaves. `stale` bytes that are no
    // message come first and stay in the read buffer: they must not be seen.
    std::string walk(const uint8_t* data, size_t size, size_t stale) {
        std::string seen;
        android::base::unique_fd kernel, destroyer;
        connectClient(destroySocket, destroyer, data, size);
        connectClient(dumpSocket, kernel, data, size, stale);
        kernel.reset();
        readDiagMsgWithTcpInfo([&](auto*, auto& info) {
            seen.append(reinterpret_cast<const char*>(info.bytes), info.length);
        });
        readDiagMsg(6, [&](auto, auto* msg) {
            seen.append(reinterpret_cast<const char*>(msg), sizeof(*msg));
            return !isLoopbackSocket(msg);
        });
        return seen;
    }
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    require(Client().walk(data, size, 0) == Client().walk(data, size, 8192));
    return 0;
}
