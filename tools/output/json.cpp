// SPDX-License-Identifier: Apache-2.0
#include "output/json.h"

#include <cmath>
#include <cstdio>

#include "output/utf8.h"

namespace lnkd {

JsonWriter& JsonWriter::beginObject(std::string_view name) {
    beginValue(name);
    m_text += '{';
    m_hasMembers.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::beginArray(std::string_view name) {
    beginValue(name);
    m_text += '[';
    m_hasMembers.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::endObject() {
    end('}');
    return *this;
}

JsonWriter& JsonWriter::endArray() {
    end(']');
    return *this;
}

JsonWriter& JsonWriter::text(std::string_view name, std::string_view value) {
    beginValue(name);
    quote(value);
    return *this;
}

JsonWriter& JsonWriter::number(std::string_view name, int64_t value) {
    beginValue(name);
    m_text += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::number(std::string_view name, double value, int decimals) {
    beginValue(name);
    char digits[400];  // the largest double has 309 before its point
    snprintf(digits, sizeof(digits), "%.*f", decimals, value);
    m_text += std::isfinite(value) ? digits : "null";
    return *this;
}

JsonWriter& JsonWriter::boolean(std::string_view name, bool value) {
    beginValue(name);
    m_text += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::null(std::string_view name) {
    beginValue(name);
    m_text += "null";
    return *this;
}

void JsonWriter::beginValue(std::string_view name) {
    if (m_hasMembers.empty()) {
        return;
    }
    m_text += m_hasMembers.back() ? ",\n" : "\n";
    m_hasMembers.back() = true;
    m_text.append(2 * m_hasMembers.size(), ' ');
    if (!name.empty()) {
        quote(name);
        m_text += ": ";
    }
}

void JsonWriter::end(char bracket) {
    const bool hadMembers = m_hasMembers.back();
    m_hasMembers.pop_back();
    if (hadMembers) {
        m_text += '\n';
        m_text.append(2 * m_hasMembers.size(), ' ');
    }
    m_text += bracket;
    if (m_hasMembers.empty()) {
        m_text += '\n';
    }
}

void JsonWriter::quote(std::string_view value) {
    m_text += '"';
    while (!value.empty()) {
        const std::string_view character = takeUtf8(value);
        const auto first = static_cast<unsigned char>(character.front());
        if (character == "\"" || character == "\\") {
            m_text += '\\';
            m_text += character;
        } else if (first < 0x20) {
            char escape[8];
            snprintf(escape, sizeof(escape), "\\u%04x", unsigned{first});
            m_text += escape;
        } else {
            m_text += character;
        }
    }
    m_text += '"';
}

}  // namespace lnkd
