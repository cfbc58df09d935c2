#include "Html.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "text/Text.h"

namespace report {

// Quotes are left alone, because they are read as markup inside attributes only, and no text of a process
// ever stands in one.
std::string escaped(std::string_view text) {
  std::string html;
  for (const char c : text) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

std::string shown(std::string_view text) {
  return escaped(text::printable(text));
}

// <details> folds without JavaScript. Both parts are escaped after the cut: a cut through an escape would
// give other text.
std::string shownShort(std::string_view text) {
  constexpr size_t kMaxColumns = 300;
  const std::string printable = text::printable(text);
  const std::string front = text::cutTo(kMaxColumns, printable);
  if (front == printable) return escaped(printable);
  return fmt::format("<details><summary>{}</summary>{}</details>", escaped(front), escaped(printable));
}

// <bdi> keeps a right-to-left name from turning the pid and the date beside it.
std::string isolated(std::string_view text) {
  return "<bdi>" + shown(text) + "</bdi>";
}

// HTML lets </td> and </tr> be left out. A page has thousands of them.
std::string row(std::initializer_list<std::string> cells) {
  std::string html = "<tr>";
  for (const std::string& cell : cells) html += "<td>" + cell;
  return html + "\n";
}

// The heads are in a <thead>, which browsers repeat on each printed page.
std::string table(std::initializer_list<std::string_view> heads, const std::string& rows,
                  std::string_view none) {
  if (rows.empty()) return fmt::format("<p class=\"none\">{}</p>", none);
  std::string html = "<table><thead><tr>";
  for (const std::string_view head : heads) html += fmt::format("<th>{}", head);
  return html + "</thead><tbody>\n" + rows + "</tbody></table>\n";
}

// Less than half of the last digit would print as "-0.0 s".
std::string offsetText(int64_t offsetMs) {
  return fmt::format("{}{:.1f} s", offsetMs < -50 ? "−" : "", static_cast<double>(-offsetMs) / 1000);
}

// gmtime() of fmt is thread-safe, that of the C library is not.
std::string wallText(int64_t wallMs) {
  const std::time_t seconds = wallMs / 1000;
  return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03}", fmt::gmtime(seconds), wallMs % 1000);
}

}  // namespace report
