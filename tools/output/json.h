// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace lnkd {

// Writes one JSON text (RFC 8259), indented by two blanks a level, member by member.
//
// Inside an object every value needs a name, inside an array none is given. Bytes that are no
// UTF-8 become U+FFFD: logs and messages hold what somebody else wrote.
class JsonWriter {
  public:
    JsonWriter& beginObject(std::string_view name = {});
    JsonWriter& endObject();
    JsonWriter& beginArray(std::string_view name = {});
    JsonWriter& endArray();

    JsonWriter& text(std::string_view name, std::string_view value);
    JsonWriter& number(std::string_view name, int64_t value);
    // With `decimals` digits behind the point; null when it is not finite.
    JsonWriter& number(std::string_view name, double value, int decimals);
    JsonWriter& boolean(std::string_view name, bool value);
    JsonWriter& null(std::string_view name);

    // The text, with a line end, once every object and array has been ended.
    const std::string& result() const { return m_text; }

  private:
    void beginValue(std::string_view name);
    void end(char bracket);
    void quote(std::string_view value);

    std::string m_text;
    std::vector<bool> m_hasMembers;  // of each object or array that is open
};

}  // namespace lnkd
