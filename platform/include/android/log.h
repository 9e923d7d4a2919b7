// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stand-in for the phone's log library on a machine that is not a phone: the same functions with
// the same signatures, writing to standard error.

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

// Writes one message in logcat's `threadtime` form,
//
//     11-24 10:32:00.123  1234  1235 I DVX-Lnkd-daemon: text
//
// to standard error with a single write, so that messages of many threads stay whole. One newline
// at the end of the text is not doubled; a newline inside it starts a further line with the same
// prefix; other control characters, and bytes that are not UTF-8, are written as \xNN. Returns the
// number of bytes written, or a negative errno value. Thread-safe.
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
        __attribute__((__format__(printf, 3, 4)));

// The same for a text that is complete already.
int __android_log_write(int prio, const char* tag, const char* text);

#ifdef __cplusplus
}
#endif
