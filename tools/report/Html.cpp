#include "Html.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "text/Text.h"

namespace report {

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

std::string shownShort(std::string_view text) {
  constexpr size_t kMaxColumns = 300;
  const std::string printable = text::printable(text);
  const std::string front = text::cutTo(kMaxColumns, printable);
  if (front == printable) return escaped(printable);
  return fmt::format("<details><summary>{}</summary>{}</details>", escaped(front), escaped(printable));
}

std::string isolated(std::string_view text) {
  return "<bdi>" + shown(text) + "</bdi>";
}

std::string row(std::initializer_list<std::string> cells) {
  std::string html = "<tr>";
  for (const std::string& cell : cells) html += "<td>" + cell;
  return html + "\n";
}

std::string table(std::initializer_list<std::string_view> heads, const std::string& rows,
                  std::string_view none) {
  if (rows.empty()) return fmt::format("<p class=\"none\">{}</p>", none);
  std::string html = "<table><thead><tr>";
  for (const std::string_view head : heads) html += fmt::format("<th>{}", head);
  return html + "</thead><tbody>\n" + rows + "</tbody></table>\n";
}

std::string offsetText(int64_t offsetMs) {
  return fmt::format("{}{:.1f} s", offsetMs < -50 ? "−" : "", static_cast<double>(-offsetMs) / 1000);
}

std::string wallText(int64_t wallMs) {
  const std::time_t seconds = wallMs / 1000;
  return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03}", fmt::gmtime(seconds), wallMs % 1000);
}

}  // namespace report
