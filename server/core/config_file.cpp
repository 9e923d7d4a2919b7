// SPDX-License-Identifier: Apache-2.0
#include "core/config_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "core/parameters.h"

#define LNKD_LOG_TAG "DVX-Lnkd-SlaParameters"
#include "core/log.h"

namespace lnkd {

namespace {

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

}  // namespace

bool readConfigFile(const char* path, std::string& content) {
    const std::unique_ptr<FILE, FileCloser> file{fopen(path, "re")};
    if (file == nullptr) {
        return false;
    }
    char block[4096];
    size_t n = 0;
    while ((n = fread(block, 1, sizeof(block), file.get())) > 0) {
        content.append(block, n);
        if (content.size() > kLargestConfFile) {
            errno = EFBIG;
            return false;
        }
    }
    return ferror(file.get()) == 0;
}

std::vector<ConfigLine> configLines(const std::string& content) {
    std::vector<ConfigLine> lines;
    size_t start = 0;
    for (size_t number = 1; start < content.size(); ++number) {
        const size_t end = std::min(content.find('\n', start), content.size());
        std::string line = content.substr(start, end - start);
        start = end + 1;
        if (!Parameters::trim(line).empty() && line.front() != '#') {
            lines.push_back({number, std::move(line)});
        }
    }
    return lines;
}

std::optional<ConfigPair> configPair(const std::string& line) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) {
        return std::nullopt;
    }
    ConfigPair pair = {line.substr(0, equals), line.substr(equals + 1)};
    Parameters::trim(pair.key);
    Parameters::trim(pair.value);
    return pair;
}

void Parameters::readLnkdConfFile(const char* path) {
    std::string content;
    if (!readConfigFile(path, content)) {
        LNKD_LOGE("read lnkd conf file failed!");
        return;
    }
    std::vector<std::string> lines;
    for (ConfigLine& line : configLines(content)) {
        lines.push_back(std::move(line.text));
    }
    fromVector(lines);
}

std::string& Parameters::trim(std::string& text) {
    const size_t comment = text.find('#');
    if (comment != std::string::npos && comment > 0) {
        text.erase(comment);
    }
    size_t end = text.size();
    while (end > 0 && isBlank(text[end - 1])) {
        --end;
    }
    text.erase(end);
    size_t begin = 0;
    while (begin < text.size() && isBlank(text[begin])) {
        ++begin;
    }
    text.erase(0, begin);
    return text;
}

void Parameters::fromVector(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        if (const auto pair = configPair(line)) {
            setValue(pair->key.c_str(), pair->value.c_str());
        }
    }
}

}  // namespace lnkd
