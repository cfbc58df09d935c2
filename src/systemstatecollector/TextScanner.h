// Takes lines, words and numbers off the beginning of a text, with the results of std::getline and of stream
// extraction (`stream >> value`) in the classic locale, but without a stream. All functions take any bytes.
// "Takes off" means that the text's beginning is removed, white space in front of the word or number
// included.
#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

namespace Torv::OS::Diagnostics {

// Takes the next line off `text` and stores it in `line` without its newline. Returns false if nothing is
// left: a text that ends in a newline has no empty line after it.
inline bool nextLine(std::string_view& text, std::string_view& line) {
  if (text.empty()) return false;
  const size_t end = text.find('\n');
  line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return true;
}

inline bool isSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

inline bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

inline void skipSpace(std::string_view& text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
}

// Takes the next word off `text`: the characters up to the next white space. Returns an empty text if there
// is no word left.
inline std::string_view nextWord(std::string_view& text) {
  skipSpace(text);
  size_t length = 0;
  while (length < text.size() && !isSpace(text[length])) ++length;
  const std::string_view word = text.substr(0, length);
  text.remove_prefix(length);
  return word;
}

// Takes a decimal number off `text`. Returns false if a stream would have failed and read no more numbers:
// `value` is then 0 if there is no number, and the largest value if the number is too large. A minus sign is
// accepted, and the value wraps around.
template <typename Unsigned>
bool nextNumber(std::string_view& text, Unsigned& value) {
  constexpr Unsigned kMax = std::numeric_limits<Unsigned>::max();
  value = 0;
  skipSpace(text);
  const bool negative = !text.empty() && text.front() == '-';
  if (negative || (!text.empty() && text.front() == '+')) text.remove_prefix(1);
  if (text.empty() || !isDigit(text.front())) return false;

  Unsigned magnitude = 0;
  bool fits = true;
  for (; !text.empty() && isDigit(text.front()); text.remove_prefix(1)) {
    const Unsigned digit = static_cast<Unsigned>(text.front() - '0');
    fits = fits && (magnitude < kMax / 10 || (magnitude == kMax / 10 && digit <= kMax % 10));
    if (fits) magnitude = magnitude * 10 + digit;
  }
  value = !fits ? kMax : negative ? Unsigned{0} - magnitude : magnitude;
  return fits;
}

}  // namespace Torv::OS::Diagnostics
