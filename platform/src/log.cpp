// SPDX-License-Identifier: Apache-2.0
#include "android/log.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>

namespace {

char priorityLetter(int prio) {
    constexpr char kLetters[] = "??VDIWEF";
    return prio >= 0 && prio < static_cast<int>(sizeof(kLetters)) - 1 ? kLetters[prio] : '?';
}

std::string linePrefix(int prio, const char* tag) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char when[32];
    strftime(when, sizeof(when), "%m-%d %H:%M:%S", &local);
    char prefix[256];
    const long thread = syscall(SYS_gettid);
    snprintf(prefix, sizeof(prefix), "%s.%03ld %5d %5ld %c %-8.100s: ", when, now.tv_nsec / 1000000,
             getpid(), thread, priorityLetter(prio), tag);
    return prefix;
}

// Bytes of the printable character at `at`, in UTF-8; 0 when there is a control character, of
// ASCII or from U+0080 to U+009F, or no character at all.
size_t printableLength(std::string_view text, size_t at) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80) {
        return lead < 0x20 || lead == 0x7F ? 0 : 1;
    }
    const size_t length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
    if (length == 0 || length > text.size() - at) {
        return 0;
    }
    for (size_t i = at + 1; i < at + length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    // Longer than the character needs, or a control character in two bytes.
    const bool isFalse = (lead == 0xE0 || lead == 0xC2) && byte(at + 1) < 0xA0;
    return isFalse || (lead == 0xF0 && byte(at + 1) < 0x90) ? 0 : length;
}

// Appends a line of a message. What a client sent is part of many: its control characters must not
// reach the terminal of whoever reads the log.
void appendPrintable(std::string& out, std::string_view line) {
    for (size_t i = 0; i < line.size();) {
        const size_t length = printableLength(line, i);
        if (length > 0) {
            out.append(line.substr(i, length));
            i += length;
            continue;
        }
        char number[8];
        snprintf(number, sizeof(number), "\\x%02x", static_cast<unsigned char>(line[i++]));
        out.append(number);
    }
}

int writeAll(const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(STDERR_FILENO, bytes.data() + done, bytes.size() - done);
        if (n >= 0) {
            done += static_cast<size_t>(n);
        } else if (errno != EINTR) {
            return -errno;
        }
    }
    return static_cast<int>(done);
}

}  // namespace

int __android_log_write(int prio, const char* tag, const char* text) {
    const int savedErrno = errno;
    const std::string prefix = linePrefix(prio, tag != nullptr ? tag : "");
    std::string_view rest(text != nullptr ? text : "");
    if (!rest.empty() && rest.back() == '\n') {
        rest.remove_suffix(1);
    }
    std::string out;
    size_t end = 0;
    do {
        end = rest.find('\n');
        out.append(prefix);
        appendPrintable(out, rest.substr(0, end));
        out.push_back('\n');
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    } while (end != std::string_view::npos);
    const int result = writeAll(out);
    errno = savedErrno;
    return result;
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    va_list again;
    va_copy(again, args);
    char buffer[1024];
    const int length = vsnprintf(buffer, sizeof(buffer), fmt, args);
    va_end(args);
    int result = -EINVAL;
    if (length >= 0 && static_cast<size_t>(length) < sizeof(buffer)) {
        result = __android_log_write(prio, tag, buffer);
    } else if (length >= 0) {
        std::string text(static_cast<size_t>(length) + 1, '\0');
        vsnprintf(text.data(), text.size(), fmt, again);
        result = __android_log_write(prio, tag, text.c_str());
    }
    va_end(again);
    return result;
}
