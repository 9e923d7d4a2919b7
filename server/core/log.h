// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/log.h>

// A module's lines in the phone's log, printf-style, under its own tag: a source file defines
// LNKD_LOG_TAG as "DVX-Lnkd-" and the module before it uses these.
#define LNKD_LOGI(...) __android_log_print(ANDROID_LOG_INFO, LNKD_LOG_TAG, __VA_ARGS__)
#define LNKD_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, LNKD_LOG_TAG, __VA_ARGS__)
