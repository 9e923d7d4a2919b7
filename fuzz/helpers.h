// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android-base/unique_fd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

// Ends the run: what the daemon promises does not hold.
inline void require(bool holds) {
    if (!holds)
        abort();
}

// The texts of an interface record, if there is one, that commands are made of: each is one word
// to a shell, and no option, hidden file or path.
template <typename Record>
void requirePlain(const Record* record) {
    if (record == nullptr)
        return;
    for (const std::string text : {record->name, record->routeTable, record->fwmark})
        require(text.find_first_not_of("-.") == 0 &&
                text.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz"
                                       "ABCDEFGHIJKLMNOPQRSTUVWXYZ_.:-") == text.npos);
}

// Gives `client` one end of a connection whose other end, `kernel`, sends `stale` bytes of 0xFF,
// if any, and then the input: datagrams, each after its length in two bytes, as many as any socket
// holds.
inline void connectClient(android::base::unique_fd& client, android::base::unique_fd& kernel,
                          const uint8_t* data, size_t size, size_t stale = 0) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0);
    client.reset(ends[0]);
    kernel.reset(ends[1]);
    if (stale > 0)
        send(kernel, std::string(stale, '\xff').data(), stale, 0);
    for (int left = 64; left > 0 && size >= 2; --left) {
        const size_t length = std::min<size_t>(data[0] + data[1] * 256U, size - 2);
        send(kernel, data + 2, length, MSG_DONTWAIT);
        data += 2 + length;
        size -= 2 + length;
    }
}
