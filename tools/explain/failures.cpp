// SPDX-License-Identifier: Apache-2.0
#include "explain/failures.h"

#include <algorithm>
#include <cctype>

namespace lnkd {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string withoutNumbers(const std::string& text) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isInName =
                i > 0 &&
                (std::isalnum(static_cast<unsigned char>(text[i - 1])) != 0 || text[i - 1] == '_');
        if (!isDigit(text[i]) || isInName) {
            result += text[i];
            continue;
        }
        result += '#';
        while (i + 1 < text.size() && isDigit(text[i + 1])) {
            ++i;
        }
    }
    return result;
}

}  // namespace

void FailureTable::add(const LogTime& at, const std::string& text) {
    const bool isFull = m_failures.size() >= kMostFailures;
    const std::string key = withoutNumbers(text);
    const auto known = m_places.find(key);
    size_t place = 0;
    if (known != m_places.end()) {
        place = known->second;
    } else if (isFull) {
        place = m_failures.size() - 1;
        m_failures[place].text = "others, of more kinds than are kept apart";
    } else {
        place = m_failures.size();
        m_places[key] = place;
        m_failures.push_back({text, 0, at, at});
    }
    ++m_failures[place].count;
    m_failures[place].last = at;
}

std::vector<Failure> FailureTable::sorted() const {
    std::vector<Failure> all = m_failures;
    std::stable_sort(all.begin(), all.end(),
                     [](const Failure& a, const Failure& b) { return a.count > b.count; });
    return all;
}

}  // namespace lnkd
