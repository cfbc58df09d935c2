// A picture of a terminal as plain values.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace top {

// What a piece of text is. The terminal decides how that looks, so a view without colours is the same view.
enum class Style {
  Plain,
  Strong,
  Faint,
  Title,    // a line of its own that parts the screen
  Cursor,   // the row that keys act on
  Changed,  // has just changed
  Dead,     // of dead processes, and what is wrong
  Chart,
};

// A piece of a line in one style.
struct Span {
  std::string text;  // printable; in ASCII if the terminal has no UTF-8
  Style style = Style::Plain;

  bool operator==(const Span&) const = default;
};

// From left to right. Columns behind the last span are blank.
using Line = std::vector<Span>;

// Of a terminal, or of a part of it, in characters.
struct Size {
  size_t columns = 80;
  size_t rows = 24;

  bool operator==(const Size&) const = default;
};

}  // namespace top
