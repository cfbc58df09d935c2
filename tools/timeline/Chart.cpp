#include "timeline/Chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>

namespace timeline {
namespace {

using Glyph = std::string_view;
constexpr std::array<Glyph, 8> kBlocks = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<Glyph, 8> kAscii = {"_", ".", ":", "-", "=", "+", "*", "#"};

// A line that goes on after its source has stopped would be a false claim, so a value holds for this long
// only:
constexpr int64_t kHoldMs = 5000;  // longer than any source's period

}  // namespace

// A column shows the highest of its values, because a short peak is what one looks for. `held` is the newest
// value so far, or nothing after a gap.
std::vector<std::optional<double>> columnsOf(const Series& series, int64_t fromMs, int64_t toMs,
                                             size_t count) {
  std::vector<std::optional<double>> columns(count);
  if (toMs <= fromMs) return columns;
  const double columnMs = static_cast<double>(toMs - fromMs) / static_cast<double>(count);
  auto next = series.points.begin();
  std::optional<double> held;
  int64_t heldMs = 0;
  for (size_t i = 0; i < count; ++i) {
    const int64_t endMs = fromMs + std::llround(columnMs * static_cast<double>(i + 1));
    const int64_t beginMs = fromMs + std::llround(columnMs * static_cast<double>(i));
    std::optional<double> highest;
    for (; next != series.points.end() && next->bootMs <= endMs; ++next) {
      held = next->value;
      heldMs = next->bootMs;
      if (heldMs >= beginMs && held) highest = std::max(highest.value_or(*held), *held);
    }
    columns[i] = highest || endMs - heldMs > kHoldMs ? highest : held;
  }
  return columns;
}

// The lowest glyph is a visible line, because a blank means that there is no value. Zero and nothing must not
// look alike.
std::string bars(const std::vector<std::optional<double>>& columns, const Scale& scale, Glyphs glyphs) {
  const auto& levels = glyphs == Glyphs::Blocks ? kBlocks : kAscii;
  std::string text;
  for (const std::optional<double>& value : columns) {
    if (!value) {
      text += ' ';
      continue;
    }
    const double share = (*value - scale.lowest) / (scale.highest - scale.lowest);
    const double level = std::clamp(share, 0.0, 1.0) * static_cast<double>(levels.size() - 1);
    text += levels[static_cast<size_t>(std::lround(level))];
  }
  return text;
}

// The buffer holds the longest double: 309 digits before the point.
std::string numberText(double value) {
  std::array<char, 400> text{};
  const int size = snprintf(text.data(), text.size(), "%.2f", value);
  std::string_view digits(text.data(), static_cast<size_t>(size));
  while (digits.ends_with('0')) digits.remove_suffix(1);
  if (digits.ends_with('.')) digits.remove_suffix(1);
  return digits == "-0" ? "0" : std::string(digits);
}

}  // namespace timeline
