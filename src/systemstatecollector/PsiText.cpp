#include "PsiText.h"

#include <cstdio>
#include <optional>
#include <string>

#include "TextScanner.h"

namespace Torv::OS::Diagnostics {
namespace {

bool take(std::string_view& text, std::string_view expected) {
  if (text.substr(0, expected.size()) != expected) return false;
  text.remove_prefix(expected.size());
  return true;
}

// Takes as many digits as there are off `text` and appends them to `number`; returns how many.
size_t takeDigits(std::string_view& text, uint64_t& number) {
  size_t count = 0;
  for (; count < text.size() && isDigit(text[count]); ++count) {
    number = number * 10 + static_cast<uint64_t>(text[count] - '0');
  }
  text.remove_prefix(count);
  return count;
}

// A number of the kernel's form, "12.34". With at most seven digits, both sides of the division are exact, so
// its result is the nearest float, as scanf's is.
bool takeAverage(std::string_view& text, float& average) {
  constexpr float kPowersOfTen[] = {1, 1e1F, 1e2F, 1e3F, 1e4F, 1e5F, 1e6F};
  constexpr size_t kExactDigits = 7;
  uint64_t number = 0;
  const size_t whole = takeDigits(text, number);
  if (whole == 0 || !take(text, ".")) return false;
  const size_t fraction = takeDigits(text, number);
  if (fraction == 0 || whole + fraction > kExactDigits) return false;
  average = static_cast<float>(number) / kPowersOfTen[fraction];
  return true;
}

bool takeTotal(std::string_view text, uint64_t& total) {
  constexpr size_t kDigitsThatFit = 19;
  const size_t count = takeDigits(text, total);
  return count > 0 && count <= kDigitsThatFit;
}

// The line as every kernel writes it; empty where it is anything else.
std::optional<PsiLine> parseUsualLine(std::string_view line) {
  PsiLine result;
  if (line.substr(0, 4) != "some" && line.substr(0, 4) != "full") return std::nullopt;
  line.copy(result.type.data(), 4);
  line.remove_prefix(4);
  const bool usual = take(line, " avg10=") && takeAverage(line, result.avg10) &&    //
                     take(line, " avg60=") && takeAverage(line, result.avg60) &&    //
                     take(line, " avg300=") && takeAverage(line, result.avg300) &&  //
                     take(line, " total=") && takeTotal(line, result.total);
  if (!usual) return std::nullopt;
  return result;
}

PsiLine parseAnyLine(std::string_view line) {
  PsiLine result;
  unsigned long total = 0;
  // How much was read does not matter: what was not, stays as it is.
  // NOLINTNEXTLINE(cert-err34-c)
  (void)std::sscanf(std::string(line).c_str(), "%4s avg10=%f avg60=%f avg300=%f total=%lu",
                    result.type.data(), &result.avg10, &result.avg60, &result.avg300, &total);
  result.total = total;
  return result;
}

}  // namespace

PsiLine parsePsiLine(std::string_view line) {
  const auto usual = parseUsualLine(line);
  return usual ? *usual : parseAnyLine(line);
}

}  // namespace Torv::OS::Diagnostics
