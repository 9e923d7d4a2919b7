// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stand-in for the phone's system properties: they live in the file /vendor/build.prop.

#ifdef __cplusplus
extern "C" {
#endif

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

// Reads the property `key` into `value`, a buffer of PROPERTY_VALUE_MAX bytes, NUL-terminated; a
// longer value is cut. The file is read afresh at every call: `key=value` lines, blanks around
// both ignored, `#` starts a comment line, the last line of a key wins. Whoever changes it
// replaces it by rename. When the file or the key is missing the value is `default_value` (empty
// when that is null). Returns the length of the value. Thread-safe.
int property_get(const char* key, char* value, const char* default_value);

#ifdef __cplusplus
}
#endif
