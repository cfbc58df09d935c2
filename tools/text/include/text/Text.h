// Texts of other processes, made fit to be shown. Nobody trusts them: they may hold bytes that drive a
// terminal, marks that reorder what stands beside them, and any number of characters.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace text {

// Returns `text` on one line: control characters, line separators, marks of writing direction and bytes that
// are not UTF-8 are written as escapes (\n, \x1b, \u202e). Everything else stays as it is.
std::string printable(std::string_view text);

// Returns how many columns of a terminal a printable text takes. Without a UTF-8 locale (setlocale), each
// character counts as one column.
size_t columnsOf(std::string_view printable);

// Returns the longest front part of a printable text that takes at most `columns` columns. If something is
// cut off, the result ends with `mark`, which counts. Of a row of combining marks only the first few are
// kept.
std::string cutTo(size_t columns, std::string_view printable, std::string_view mark = "…");

// Returns a printable text without the characters beyond ASCII: each becomes a question mark.
std::string ascii(std::string_view printable);

}  // namespace text
