// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stand-in for the phone's base logging: a stream that becomes one log message.

#include <cerrno>
#include <string>
#include <type_traits>

namespace android {
namespace base {

enum LogSeverity {
    VERBOSE,
    DEBUG,
    INFO,
    WARNING,
    ERROR,
    FATAL_WITHOUT_ABORT,
    FATAL,
};

// The text of a message. No std::ostream: its locales would be 240 KiB of the daemon's memory.
class LogStream {
  public:
    LogStream& operator<<(const std::string& text) {
        m_text += text;
        return *this;
    }
    template <typename Number, typename = std::enable_if_t<std::is_integral_v<Number>>>
    LogStream& operator<<(Number number) {
        return *this << std::to_string(number);
    }
    const std::string& text() const { return m_text; }

  private:
    std::string m_text;
};

// Collects a message in stream() and writes it when destroyed, through the same log as
// __android_log_print. A null `tag` means "dvx-netlink". With `error` other than -1 the text of
// that errno value follows the message after ": ". FATAL aborts the process, and only there the
// source file and line are written out.
class LogMessage {
  public:
    LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag,
               int error);
    ~LogMessage();
    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;

    LogStream& stream() { return m_stream; }

  private:
    LogStream m_stream;
    const char* const m_file;
    const unsigned int m_line;
    const LogSeverity m_severity;
    const char* const m_tag;
    const int m_error;
};

}  // namespace base
}  // namespace android

#ifndef LOG_TAG
#define LIBLOG_STAND_IN_TAG nullptr
#else
#define LIBLOG_STAND_IN_TAG LOG_TAG
#endif

#define LOG(severity)                                                          \
    ::android::base::LogMessage(__FILE__, __LINE__, ::android::base::severity, \
                                LIBLOG_STAND_IN_TAG, -1)                       \
            .stream()

#define PLOG(severity)                                                         \
    ::android::base::LogMessage(__FILE__, __LINE__, ::android::base::severity, \
                                LIBLOG_STAND_IN_TAG, errno)                    \
            .stream()
