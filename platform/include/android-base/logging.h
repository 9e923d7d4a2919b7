// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stand-in for the phone's base logging: a stream that becomes one log message.

#include <cerrno>
#include <memory>
#include <ostream>

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

class LogMessageData;

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

    std::ostream& stream();

  private:
    const std::unique_ptr<LogMessageData> data_;
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
