// SPDX-License-Identifier: Apache-2.0
#include "state/connection_marks.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <iterator>

namespace lnkd {

namespace {

constexpr std::chrono::seconds kTimeLimit(2);
constexpr std::string_view kMark = " mark=";
constexpr size_t kLongestLine = 4096;  // bytes; the kernel's have a few hundred

// Whether the line is of a TCP connection that is closed or about to be: "ipv4 2 tcp 6 119
// TIME_WAIT src=...".
bool isEnding(std::string_view line) {
    constexpr std::string_view kStates[] = {"TIME_WAIT ", "FIN_WAIT ", "CLOSE_WAIT ", "LAST_ACK ",
                                            "CLOSE "};
    const size_t addresses = line.find("src=");
    const size_t begin = line.substr(0, addresses).find(" tcp ");
    if (addresses == std::string_view::npos || begin == std::string_view::npos) {
        return false;
    }
    const std::string_view head = line.substr(begin, addresses - begin);
    return std::any_of(std::begin(kStates), std::end(kStates), [head](std::string_view state) {
        return head.size() > state.size() &&
               head.compare(head.size() - state.size(), state.size(), state) == 0;
    });
}

Reading<int64_t> readNumber(const std::string& path) {
    const Reading<std::string> file = readFile(path, 64);
    Reading<int64_t> number{0, file.problem};
    std::from_chars(file.value.data(), file.value.data() + file.value.size(), number.value);
    return number;
}

}  // namespace

void MarkCounter::take(std::string_view piece) {
    while (!piece.empty()) {
        const size_t lineEnd = piece.find('\n');
        if (lineEnd == std::string_view::npos) {
            m_begun.append(piece.substr(0, kLongestLine - std::min(kLongestLine, m_begun.size())));
            return;
        }
        if (m_begun.empty()) {
            takeLine(piece.substr(0, lineEnd));
        } else {
            m_begun.append(piece.substr(0, lineEnd));
            takeLine(m_begun);
            m_begun.clear();
        }
        piece.remove_prefix(lineEnd + 1);
    }
}

void MarkCounter::takeLine(std::string_view line) {
    const size_t at = line.rfind(kMark);  // near the end, behind addresses and ports
    uint32_t mark = 0;
    if (at != std::string_view::npos) {
        const std::string_view digits = line.substr(at + kMark.size());
        std::from_chars(digits.data(), digits.data() + digits.size(), mark);
    }
    ConnectionCount& count = m_counts[mark];
    ++count.all;
    count.live += isEnding(line) ? 0 : 1;
}

Reading<ConnectionsByMark> countConnections(const char* table) {
    const auto deadline = std::chrono::steady_clock::now() + kTimeLimit;
    const android::base::unique_fd fd(open(table, O_RDONLY | O_CLOEXEC));
    MarkCounter counter;
    char buffer[65536];
    ssize_t n = fd.ok() ? 1 : -1;
    while (n > 0 && (n = read(fd.get(), buffer, sizeof(buffer))) > 0) {
        counter.take({buffer, static_cast<size_t>(n)});
        if (std::chrono::steady_clock::now() > deadline) {
            return Reading<ConnectionsByMark>::failed(std::string(table) +
                                                      ": not read to its end in time");
        }
    }
    if (n < 0) {
        return Reading<ConnectionsByMark>::failed(problemWith(table));
    }
    return {counter.counts(), ""};
}

Reading<TrackedConnections> readTrackedConnections() {
    const Reading<int64_t> count = readNumber("/proc/sys/net/netfilter/nf_conntrack_count");
    const Reading<int64_t> limit = readNumber("/proc/sys/net/netfilter/nf_conntrack_max");
    if (!count.known() || !limit.known()) {
        return Reading<TrackedConnections>::failed(count.known() ? limit.problem : count.problem);
    }
    return {{count.value, limit.value}, ""};
}

}  // namespace lnkd
