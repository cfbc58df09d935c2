// Charts of text: one character a column, on a fixed scale, so that two charts can be compared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "timeline/Timeline.h"

namespace timeline {

enum class Glyphs {
  Blocks,  // the eight block elements of Unicode, in UTF-8
  Ascii,
};

// The series between `fromMs` and `toMs` in `count` columns of equal time: the highest value of a column's
// points; in a column without a point the value before it, as long as that is the newest one. Nothing in a
// gap, before the first point, and 5 s after a point that no other follows.
std::vector<std::optional<double>> columnsOf(const Series& series, int64_t fromMs, int64_t toMs,
                                             size_t count);

// One character for each column, lowest to highest glyph; a blank if it has no value. Values outside of the
// scale count as its end.
std::string bars(const std::vector<std::optional<double>>& columns, const Scale& scale, Glyphs glyphs);

// A number for people: at most two digits behind the point, none if they are zero.
std::string numberText(double value);

}  // namespace timeline
