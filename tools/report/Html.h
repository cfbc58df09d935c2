// Pieces of HTML.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace report {

// `text` as the content of an element: the characters that HTML reads as markup are replaced. Quotes stay as
// they are, so the result must not stand in an attribute. Texts of processes go through shown().
std::string escaped(std::string_view text);

// A text of a process as HTML text: control characters as escapes, and no markup.
std::string shown(std::string_view text);

// The same, but a long text is folded: its front shows, and a click shows all of it.
std::string shownShort(std::string_view text);

// shown() inside a line with other text: its writing direction does not reach its neighbours.
std::string isolated(std::string_view text);

// A table row. The cells are HTML.
std::string row(std::initializer_list<std::string> cells);

// A table of rows, or the sentence `none` if there are no rows. `heads` names the columns.
std::string table(std::initializer_list<std::string_view> heads, const std::string& rows,
                  std::string_view none);

// Milliseconds before the end of the report as text: "-4.2 s".
std::string offsetText(int64_t offsetMs);

// Milliseconds since 1970 as text: "2026-11-21 21:05:09.123", UTC.
// Always UTC, because a report is read in other places than the one where it was made.
std::string wallText(int64_t wallMs);

}  // namespace report
