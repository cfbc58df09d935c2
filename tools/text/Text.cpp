#include "text/Text.h"

#include <cstdint>
#include <utility>

#include <fmt/format.h>
#include <wchar.h>

namespace text {
namespace {

// Characters that move the cursor, change what follows them or reorder the line: the control characters, and
// the marks of line ends and of writing direction.
bool isControl(char32_t character) {
  return character < 0x20 || (character >= 0x7f && character <= 0x9f) || character == 0x061c ||
         (character >= 0x200e && character <= 0x200f) || (character >= 0x2028 && character <= 0x202e) ||
         (character >= 0x2066 && character <= 0x2069);
}

// As C writes it, which is what readers of logs and of source code know.
std::string escape(char32_t character) {
  switch (character) {
    case '\n':
      return "\\n";
    case '\t':
      return "\\t";
    case '\r':
      return "\\r";
    default:
      return fmt::format(fmt::runtime(character < 0x100 ? "\\x{:02x}" : "\\u{:04x}"),
                         static_cast<uint32_t>(character));
  }
}

// The length of the UTF-8 character at the front of `text`, and the character.
// A byte that begins no character counts as one of its own, so every text has an end.
std::pair<size_t, char32_t> frontCharacter(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  const size_t length = first < 0x80 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  if (length == 1 || first < 0xc0 || length > text.size()) return {1, first};
  // The first byte says how long the character is, and holds its highest bits.
  char32_t character = first & (0xffu >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xc0) != 0x80) return {1, first};
    character = (character << 6) | (next & 0x3fu);
  }
  return {length, character};
}

// wcwidth(3) depends on the locale. What it does not know counts as one column.
size_t columnsOf(char32_t character) {
  const int columns = wcwidth(static_cast<wchar_t>(character));
  return columns < 0 ? 1 : static_cast<size_t>(columns);
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto [length, character] = frontCharacter(text);
    if (isControl(character) || (length == 1 && character >= 0x80)) {
      result += escape(character);
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
  return result;
}

size_t columnsOf(std::string_view printable) {
  size_t columns = 0;
  while (!printable.empty()) {
    const auto [length, character] = frontCharacter(printable);
    columns += columnsOf(character);
    printable.remove_prefix(length);
  }
  return columns;
}

// Combining characters take no column, so a hostile text could hold any number of them in one. More than four
// on one character are dropped.
std::string cutTo(size_t columns, std::string_view printable, std::string_view mark) {
  constexpr int kMaxCombining = 4;
  std::string result;
  std::string cut;  // what is returned if the rest does not fit
  size_t used = 0;
  const size_t markColumns = columnsOf(mark);
  int combining = 0;
  while (!printable.empty()) {
    const auto [length, character] = frontCharacter(printable);
    const size_t width = columnsOf(character);
    combining = width == 0 ? combining + 1 : 0;
    if (used + width > columns) return markColumns <= columns ? cut.append(mark) : cut;
    used += width;
    if (combining <= kMaxCombining) result += printable.substr(0, length);
    if (used + markColumns <= columns) cut = result;
    printable.remove_prefix(length);
  }
  return result;
}

// One question mark for each character, not for each byte, so that columns stay in place.
std::string ascii(std::string_view printable) {
  std::string result;
  while (!printable.empty()) {
    const auto [length, character] = frontCharacter(printable);
    result += character < 0x80 ? static_cast<char>(character) : '?';
    printable.remove_prefix(length);
  }
  return result;
}

}  // namespace text
