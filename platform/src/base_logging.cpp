// SPDX-License-Identifier: Apache-2.0
#include "android-base/logging.h"

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include "android/log.h"

namespace android {
namespace base {

class LogMessageData {
  public:
    LogMessageData(const char* file, unsigned int line, LogSeverity severity, const char* tag,
                   int error)
        : file_(file), line_(line), severity_(severity), tag_(tag), error_(error) {}

    std::ostringstream& buffer() { return buffer_; }

    void write() {
        if (error_ != -1) {
            buffer_ << ": " << strerror(error_);
        }
        std::string text = buffer_.str();
        if (severity_ == FATAL) {
            text = std::string(file_) + ":" + std::to_string(line_) + "] " + text;
        }
        __android_log_write(priority(), tag_ != nullptr ? tag_ : "dvx-netlink", text.c_str());
        if (severity_ == FATAL) {
            abort();
        }
    }

  private:
    int priority() const {
        switch (severity_) {
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

    std::ostringstream buffer_;
    const char* const file_;
    const unsigned int line_;
    const LogSeverity severity_;
    const char* const tag_;
    const int error_;
};

LogMessage::LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag,
                       int error)
    : data_(std::make_unique<LogMessageData>(file, line, severity, tag, error)) {}

LogMessage::~LogMessage() {
    data_->write();
}

std::ostream& LogMessage::stream() {
    return data_->buffer();
}

}  // namespace base
}  // namespace android
