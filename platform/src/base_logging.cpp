// SPDX-License-Identifier: Apache-2.0
#include "android-base/logging.h"

#include <cstdlib>
#include <cstring>

#include "android/log.h"

namespace android {
namespace base {

namespace {

int priorityOf(LogSeverity severity) {
    switch (severity) {
        case VERBOSE:
            return ANDROID_LOG_VERBOSE;
        case DEBUG:
            return ANDROID_LOG_DEBUG;
        case INFO:
            return ANDROID_LOG_INFO;
        case WARNING:
            return ANDROID_LOG_WARN;
        case ERROR:
            return ANDROID_LOG_ERROR;
        case FATAL_WITHOUT_ABORT:
        case FATAL:
            return ANDROID_LOG_FATAL;
    }
    return ANDROID_LOG_UNKNOWN;
}

}  // namespace

LogMessage::LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag,
                       int error)
    : m_file(file), m_line(line), m_severity(severity), m_tag(tag), m_error(error) {}

LogMessage::~LogMessage() {
    if (m_error != -1) {
        m_stream << ": " << strerror(m_error);
    }
    std::string text = m_stream.text();
    if (m_severity == FATAL) {
        text = std::string(m_file) + ":" + std::to_string(m_line) + "] " + text;
    }
    __android_log_write(priorityOf(m_severity), m_tag != nullptr ? m_tag : "dvx-netlink",
                        text.c_str());
    if (m_severity == FATAL) {
        abort();
    }
}

}  // namespace base
}  // namespace android
