// SPDX-License-Identifier: Apache-2.0
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "rules/iptables_manager.h"

namespace lnkd {

using android::base::unique_fd;

namespace {

constexpr char kConntrackTable[] = "/proc/net/nf_conntrack";

// The table prints marks in decimal.
const char* decimalMark(const std::string& fwmark) {
    if (fwmark == "0x5A") {
        return "90";
    }
    if (fwmark == "0x5B") {
        return "91";
    }
    if (fwmark == "0x5C") {
        return "92";
    }
    return "0";
}

// Counts the lines of a text that contain a word. The text comes in pieces, cut anywhere, and is
// never kept: a table of 100,000 connections costs no memory.
class MatchingLines {
  public:
    explicit MatchingLines(std::string word) : m_word(std::move(word)) {}

    // Takes the next piece. The last bytes of it may be the beginning of a match: they are
    // returned as a number, and the caller puts them before the next piece.
    size_t take(const char* piece, size_t length) {
        const char* const end = piece + length;
        const char* at = piece;
        for (;;) {
            if (m_lineCounted) {
                const void* const lineEnd = memchr(at, '\n', static_cast<size_t>(end - at));
                if (lineEnd == nullptr) {
                    return 0;
                }
                at = static_cast<const char*>(lineEnd) + 1;
                m_lineCounted = false;
            }
            const auto rest = static_cast<size_t>(end - at);
            const void* const match = memmem(at, rest, m_word.data(), m_word.size());
            if (match == nullptr) {
                return std::min(rest, m_word.size() - 1);
            }
            ++m_count;
            m_lineCounted = true;
            at = static_cast<const char*>(match) + m_word.size();
        }
    }

    int32_t count() const { return m_count; }

  private:
    const std::string m_word;
    int32_t m_count = 0;
    bool m_lineCounted = false;  // the line that the next piece goes on with
};

}  // namespace

int32_t IptablesManager::get_nf_conntrack_mark_number(const std::string& fwmark) {
    const unique_fd fd(open(kConntrackTable, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) {
        return 0;
    }
    MatchingLines lines(std::string("mark=") + decimalMark(fwmark));
    char buffer[32768];
    size_t kept = 0;
    ssize_t n = 0;
    while ((n = read(fd.get(), buffer + kept, sizeof(buffer) - kept)) > 0) {
        const size_t length = kept + static_cast<size_t>(n);
        kept = lines.take(buffer, length);
        memmove(buffer, buffer + length - kept, kept);
    }
    return lines.count();
}

}  // namespace lnkd
