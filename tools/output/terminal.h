// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace lnkd {

// What a word means, which a terminal shows as a colour. The word itself says it as well.
enum class Tone { kPlain, kGood, kWarning, kBad, kFaint, kHeading };

// What is written to standard output, made for whoever reads it: colours on a terminal that shows
// some, unless NO_COLOR is set; lines cut at its width. Elsewhere neither.
class Terminal {
  public:
    Terminal();

    // `text` in the colour of a tone.
    std::string in(Tone tone, std::string_view text) const;
    // Columns of the terminal now; 0 when there is none, and nothing is cut.
    size_t width() const;
    // Lines of the terminal now; 0 when there is none.
    size_t height() const;
    bool isTerminal() const { return m_isTerminal; }

  private:
    bool m_isTerminal;
    bool m_hasColours;
};

// A cell of a table; its text has no line end.
struct Cell {
    std::string text;
    Tone tone = Tone::kPlain;
};

// Rows of cells below a heading, columns two blanks apart and as wide as they need to be. A column
// whose heading begins with a blank is set to the right, as numbers are.
class Table {
  public:
    explicit Table(std::vector<std::string> headings);

    // As many cells as there are headings.
    void add(std::vector<Cell> row);

    // Columns that the widest line takes when nothing is cut.
    size_t width() const;

    // The lines. Those that are wider than the terminal are cut.
    std::string lines(const Terminal& terminal) const;

  private:
    // Of each column.
    std::vector<size_t> widths() const;

    std::vector<std::string> m_headings;
    std::vector<std::vector<Cell>> m_rows;
};

// A text broken at its blanks into lines of at most `width` columns, where its words allow it; 0:
// not at all. `indent` begins each line but the first, which somebody has begun; there is no line
// end behind the last.
std::string wrapped(std::string_view text, std::string_view indent, size_t width);

// Columns that a text takes, each character one.
size_t columnsOf(std::string_view text);

// The first `columns` characters of a text.
std::string_view cut(std::string_view text, size_t columns);

// A text from elsewhere, such as a log, for a terminal: what could steer it becomes "?".
std::string printable(std::string_view text);

}  // namespace lnkd
