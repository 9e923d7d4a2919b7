// SPDX-License-Identifier: Apache-2.0
#include "cutils/properties.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace {

constexpr char kPropertyFile[] = "/vendor/build.prop";

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

struct Freer {
    void operator()(char* memory) const { free(memory); }
};

std::string_view stripped(std::string_view text) {
    constexpr char kBlanks[] = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
    std::string found = default_value != nullptr ? default_value : "";
    if (const std::unique_ptr<FILE, FileCloser> file{fopen(kPropertyFile, "re")}) {
        char* buffer = nullptr;
        size_t capacity = 0;
        ssize_t length = 0;
        while ((length = getline(&buffer, &capacity, file.get())) >= 0) {
            const std::string_view line = stripped({buffer, static_cast<size_t>(length)});
            const size_t equals = line.find('=');
            if (equals == std::string_view::npos || line.front() == '#') {
                continue;
            }
            if (stripped(line.substr(0, equals)) == key) {
                found = stripped(line.substr(equals + 1));
            }
        }
        const std::unique_ptr<char, Freer> owned{buffer};
    }
    return snprintf(value, PROPERTY_VALUE_MAX, "%.*s", PROPERTY_VALUE_MAX - 1, found.c_str());
}
