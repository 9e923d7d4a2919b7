// SPDX-License-Identifier: Apache-2.0
#include "logfile/log_input.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "core/child_process.h"

namespace lnkd {

namespace {

constexpr size_t kBufferSize = 256 * 1024;
constexpr unsigned char kGzipMagic[] = {0x1F, 0x8B};  // RFC 1952

ssize_t readSome(int fd, char* buffer, size_t size) {
    ssize_t n = 0;
    do {
        n = read(fd, buffer, size);
    } while (n < 0 && errno == EINTR);
    return n;
}

bool writeAll(int fd, const char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t n = write(fd, bytes, size);
        if (n < 0 && errno != EINTR) {
            return false;
        }
        bytes += n > 0 ? n : 0;
        size -= n > 0 ? static_cast<size_t>(n) : 0;
    }
    return true;
}

// Copies what was read already, then the rest of a stream; a process of its own.
[[noreturn]] void feed(int from, int to, char* buffer, size_t size) {
    for (const int signal : {SIGPIPE, SIGTERM}) {  // whatever our parent or we made of them
        std::signal(signal, SIG_DFL);
    }
    ssize_t n = static_cast<ssize_t>(size);
    while (n > 0 && writeAll(to, buffer, static_cast<size_t>(n))) {
        n = readSome(from, buffer, kBufferSize);
    }
    _exit(0);
}

int waitFor(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

}  // namespace

LogInput::LogInput() : m_buffer(kBufferSize) {}

LogInput::~LogInput() {
    if (m_fd >= 0) {
        close(m_fd);
    }
    for (const pid_t pid : {m_feeder, m_unpacker}) {
        if (pid > 0) {
            kill(pid, SIGTERM);  // it may wait for a stream that brings nothing
            waitFor(pid);
        }
    }
}

bool LogInput::open(const std::string& path) {
    m_fd = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                       : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_fd < 0 || !fill()) {
        m_error = strerror(errno);
        return false;
    }
    const bool isPacked = m_end >= sizeof(kGzipMagic) &&
                          memcmp(m_buffer.data(), kGzipMagic, sizeof(kGzipMagic)) == 0;
    return !isPacked || unpack();
}

void LogInput::take(int fd) {
    m_fd = fd;
}

// In place of m_fd, whose beginning has been consumed, what a feeder brings of all of it.
bool LogInput::startFeeder() {
    int feeding[2] = {-1, -1};
    if (pipe2(feeding, O_CLOEXEC) != 0) {
        return false;
    }
    m_feeder = fork();
    if (m_feeder == 0) {
        close(feeding[0]);
        feed(m_fd, feeding[1], m_buffer.data(), m_end);
    }
    const int error = errno;
    close(feeding[1]);
    close(m_fd);
    m_fd = feeding[0];
    errno = error;
    return m_feeder > 0;
}

bool LogInput::unpack() {
    int output[2] = {-1, -1};
    // The feeder comes first: it is to hold no end of the output, which ends with the unpacker.
    if ((lseek(m_fd, 0, SEEK_SET) != 0 && !startFeeder()) || pipe2(output, O_CLOEXEC) != 0) {
        m_error = strerror(errno);
        return false;
    }
    m_unpacker = startChild({"gzip", "-dc"}, {m_fd, output[1], kSameStream}, ChildGroup::kOurs);
    const int error = errno;
    close(output[1]);
    close(m_fd);
    m_fd = output[0];
    m_begin = m_end = 0;
    m_bytes = 0;
    m_ended = false;
    if (m_unpacker < 0) {
        m_error = std::string("gzip, which is needed to read it: ") + strerror(error);
    }
    return m_unpacker >= 0;
}

bool LogInput::fill() {
    memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
    const ssize_t n = readSome(m_fd, m_buffer.data() + m_end, m_buffer.size() - m_end);
    if (n < 0) {
        return false;
    }
    m_ended = n == 0;
    m_end += static_cast<size_t>(n);
    m_bytes += static_cast<size_t>(n);
    return true;
}

bool LogInput::next(std::string_view* line) {
    for (;;) {
        const char* const begin = m_buffer.data() + m_begin;
        const size_t size = m_end - m_begin;
        const auto* const end = static_cast<const char*>(memchr(begin, '\n', size));
        if (end == nullptr && size < kLongestLine && !m_ended) {
            if (!fill()) {
                m_error = strerror(errno);
                return false;
            }
            continue;
        }
        if (size == 0) {
            return finish();
        }
        const size_t whole = end != nullptr ? static_cast<size_t>(end - begin) : size;
        const bool wasInCutLine = m_inCutLine;
        *line = {begin, whole < kLongestLine ? whole : kLongestLine};
        m_inCutLine = end == nullptr && !m_ended;
        m_begin += whole + (end != nullptr ? 1 : 0);
        if (!wasInCutLine) {
            m_cutLines += whole >= kLongestLine ? 1 : 0;
            return true;
        }
    }
}

// The unpacker's word on whether that was all.
bool LogInput::finish() {
    if (m_unpacker > 0) {
        const int status = waitFor(m_unpacker);
        m_unpacker = -1;
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            m_error = "gzip could not unpack all of it";
        }
    }
    return false;
}

}  // namespace lnkd
