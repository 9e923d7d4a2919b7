// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace lnkd {

// The lines of a file, read once from its beginning to its end, in memory that does not grow with
// it. What gzip has packed is unpacked on the way.
class LogInput {
  public:
    // A longer line is cut; the daemon's are at most half as long.
    static constexpr size_t kLongestLine = 8192;  // bytes

    LogInput();
    ~LogInput();
    LogInput(const LogInput&) = delete;
    LogInput& operator=(const LogInput&) = delete;

    // Opens a file, "-" for standard input. False with the reason in error().
    bool open(const std::string& path);
    // Takes over a descriptor that brings plain text.
    void take(int fd);
    // The next line without its line end; it stays until the next call. False at the end, and when
    // something failed, with the reason in error().
    bool next(std::string_view* line);
    const std::string& error() const { return m_error; }

    uint64_t bytes() const { return m_bytes; }  // read so far, unpacked
    uint64_t cutLines() const { return m_cutLines; }

  private:
    bool fill();
    bool startFeeder();
    bool unpack();
    bool finish();

    int m_fd = -1;
    pid_t m_unpacker = -1;
    pid_t m_feeder = -1;  // hands a stream that cannot be read again to the unpacker
    std::vector<char> m_buffer;
    size_t m_begin = 0;  // of what is not yet handed out
    size_t m_end = 0;
    bool m_ended = false;
    bool m_inCutLine = false;
    uint64_t m_bytes = 0;
    uint64_t m_cutLines = 0;
    std::string m_error;
};

}  // namespace lnkd
