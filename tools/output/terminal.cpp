// SPDX-License-Identifier: Apache-2.0
#include "output/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "output/utf8.h"

namespace lnkd {

namespace {

constexpr size_t kGap = 2;  // blanks between two columns

// ECMA-48, "select graphic rendition".
const char* colourOf(Tone tone) {
    switch (tone) {
        case Tone::kGood:
            return "\033[32m";
        case Tone::kWarning:
            return "\033[33m";
        case Tone::kBad:
            return "\033[31m";
        case Tone::kFaint:
            return "\033[2m";
        case Tone::kHeading:
            return "\033[1m";
        case Tone::kPlain:
            break;
    }
    return "";
}

bool hasColours(bool isTerminal) {
    const char* const noColor = getenv("NO_COLOR");
    const char* const kind = getenv("TERM");
    return isTerminal && (noColor == nullptr || *noColor == '\0') && kind != nullptr &&
           std::string_view(kind) != "dumb";
}

bool isRight(const std::string& heading) {
    return !heading.empty() && heading.front() == ' ';
}

}  // namespace

Terminal::Terminal()
    : m_isTerminal(isatty(STDOUT_FILENO) != 0), m_hasColours(hasColours(m_isTerminal)) {}

std::string Terminal::in(Tone tone, std::string_view text) const {
    const char* const colour = m_hasColours ? colourOf(tone) : "";
    return *colour == '\0' ? std::string(text) : colour + std::string(text) + "\033[0m";
}

size_t Terminal::width() const {
    winsize size = {};
    if (!m_isTerminal || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) {
        return 0;
    }
    return size.ws_col;
}

size_t Terminal::height() const {
    winsize size = {};
    if (!m_isTerminal || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) {
        return 0;
    }
    return size.ws_row;
}

Table::Table(std::vector<std::string> headings) : m_headings(std::move(headings)) {}

void Table::add(std::vector<Cell> row) {
    m_rows.push_back(std::move(row));
}

std::vector<size_t> Table::widths() const {
    std::vector<size_t> widths;
    for (const std::string& heading : m_headings) {
        widths.push_back(columnsOf(heading) - (isRight(heading) ? 1 : 0));
    }
    for (const std::vector<Cell>& row : m_rows) {
        for (size_t i = 0; i < widths.size(); ++i) {
            widths[i] = std::max(widths[i], columnsOf(row[i].text));
        }
    }
    return widths;
}

size_t Table::width() const {
    size_t sum = 0;
    for (const size_t width : widths()) {
        sum += (sum == 0 ? 0 : kGap) + width;
    }
    return sum;
}

std::string Table::lines(const Terminal& terminal) const {
    const std::vector<size_t> widths = this->widths();
    std::vector<std::vector<Cell>> rows(1);
    for (const std::string& heading : m_headings) {
        rows[0].push_back({heading.substr(isRight(heading) ? 1 : 0), Tone::kHeading});
    }
    rows.insert(rows.end(), m_rows.begin(), m_rows.end());
    const size_t limit = terminal.width() > 0 ? terminal.width() : SIZE_MAX;
    std::string result;
    for (const std::vector<Cell>& row : rows) {
        size_t used = 0;
        size_t pending = 0;  // blanks before the next word: none stand at the end of a line
        for (size_t i = 0; i < widths.size(); ++i) {
            const size_t fill = widths[i] - columnsOf(row[i].text);
            pending += isRight(m_headings[i]) ? fill : 0;
            const std::string_view text = cut(row[i].text, limit - std::min(limit, used + pending));
            if (!text.empty()) {
                result.append(pending, ' ');
                result += terminal.in(row[i].tone, text);
                used += pending + columnsOf(text);
                pending = 0;
            }
            pending += (isRight(m_headings[i]) ? 0 : fill) + kGap;
        }
        result += '\n';
    }
    return result;
}

std::string wrapped(std::string_view text, std::string_view indent, size_t width) {
    std::string result;
    size_t used = columnsOf(indent);
    const size_t begin = used;
    while (!text.empty()) {
        const size_t length = std::min(text.find(' '), text.size());
        const std::string_view word = text.substr(0, length);
        text.remove_prefix(std::min(length + 1, text.size()));
        if (width > 0 && used > begin && used + 1 + columnsOf(word) > width) {
            result.append("\n").append(indent);
            used = begin;
        }
        result.append(used > begin ? " " : "").append(word);
        used += (used > begin ? 1 : 0) + columnsOf(word);
    }
    return result;
}

size_t columnsOf(std::string_view text) {
    size_t columns = 0;
    for (; !text.empty(); ++columns) {
        takeUtf8(text);
    }
    return columns;
}

std::string_view cut(std::string_view text, size_t columns) {
    std::string_view rest = text;
    for (; columns > 0 && !rest.empty(); --columns) {
        takeUtf8(rest);
    }
    return text.substr(0, text.size() - rest.size());
}

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::string_view character = takeUtf8(text);
        const auto first = static_cast<unsigned char>(character.front());
        // The control characters, those of ISO 8859 behind 0xC2 as well.
        const bool steers = first < 0x20 || first == 0x7F ||
                            (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
        result += steers ? "?" : character;
    }
    return result;
}

}  // namespace lnkd
