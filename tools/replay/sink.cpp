// SPDX-License-Identifier: Apache-2.0
#include "replay/sink.h"

#include <android/log.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace lnkd {

namespace {

constexpr size_t kBufferSize = 64 * 1024;

}  // namespace

Sink& Sink::instance() {
    static Sink sink;
    return sink;
}

void Sink::moveTo(const LogLine& line) {
    m_at = line;
}

void Sink::moveTo(int32_t date, int32_t ofDayMs) {
    m_at.month = date / 100;
    m_at.day = date % 100;
    m_at.ofDayMs = ofDayMs;
}

void Sink::setListener(std::function<void(int32_t, const LogEvent&)> listener) {
    m_listener = std::move(listener);
}

void Sink::log(char level, const char* tag, const char* text) {
    if (m_muted) {
        return;
    }
    m_at.level = level;
    m_at.tag = tag;
    m_at.text = text;
    if (m_listener) {
        m_listener(m_at.tid, parseLogEvent(m_at));
    }
    const int32_t ms = m_at.ofDayMs;
    char line[1200];
    const int length =
            snprintf(line, sizeof(line), "%02d-%02d %02d:%02d:%02d.%03d %5d %5d %c %s: %s",
                     m_at.month, m_at.day, ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000,
                     m_at.pid, m_at.tid, level, tag, text);
    if (length > 0 && static_cast<size_t>(length) < sizeof(line)) {
        copy(line);
    }
}

void Sink::copy(std::string_view line) {
    m_buffer += line;
    m_buffer += '\n';
    if (m_buffer.size() >= kBufferSize) {
        flush();
    }
}

bool Sink::flush() {
    size_t done = 0;
    while (done < m_buffer.size() && !m_failed) {
        const ssize_t n = write(STDOUT_FILENO, m_buffer.data() + done, m_buffer.size() - done);
        m_failed = n < 0 && errno != EINTR;
        done += n > 0 ? static_cast<size_t>(n) : 0;
    }
    m_buffer.clear();
    return !m_failed;
}

}  // namespace lnkd

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, fmt);
    const int length = vsnprintf(text, sizeof(text), fmt, arguments);
    va_end(arguments);
    lnkd::Sink::instance().log(prio == ANDROID_LOG_ERROR ? 'E' : 'I', tag, text);
    return length;
}
