#include "Text16.h"

#include <string>

namespace Torv::OS::Diagnostics {
namespace {

constexpr std::string_view kReplacementCharacter = "\xef\xbf\xbd";

bool isBetween(unsigned char byte, unsigned char low, unsigned char high) {
  return byte >= low && byte <= high;
}

// The length in bytes of the well-formed character that `text` begins with (Unicode, table 3-7); 0 where it
// does not begin with one.
size_t characterLength(std::string_view text) {
  const auto at = [text](size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char first = at(0);
  if (first < 0x80) return 1;
  size_t length = 0;
  unsigned char low = 0x80;  // the bounds of the second byte keep out overlong forms and surrogates
  unsigned char high = 0xbf;
  if (isBetween(first, 0xc2, 0xdf)) {
    length = 2;
  } else if (isBetween(first, 0xe0, 0xef)) {
    length = 3;
    if (first == 0xe0) low = 0xa0;
    if (first == 0xed) high = 0x9f;
  } else if (isBetween(first, 0xf0, 0xf4)) {
    length = 4;
    if (first == 0xf0) low = 0x90;
    if (first == 0xf4) high = 0x8f;
  }
  if (length == 0 || text.size() < length || !isBetween(at(1), low, high)) return 0;
  for (size_t i = 2; i < length; ++i) {
    if (!isBetween(at(i), 0x80, 0xbf)) return 0;
  }
  return length;
}

size_t wellFormedPrefix(std::string_view text) {
  size_t end = 0;
  while (end < text.size()) {
    const size_t length = characterLength(text.substr(end));
    if (length == 0) break;
    end += length;
  }
  return end;
}

std::string repaired(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const size_t good = wellFormedPrefix(text);
    result += text.substr(0, good);
    text.remove_prefix(good);
    if (text.empty()) break;
    result += kReplacementCharacter;
    text.remove_prefix(1);
  }
  return result;
}

// The greater part of all text is short and ASCII: widened here in one pass, where the platform's conversion
// walks over it twice.
constexpr size_t kShortText = 256;

// Widens `text` into `out`; false where it holds more than ASCII.
bool widenAscii(std::string_view text, char16_t* out) {
  unsigned seen = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    seen |= byte;
    out[i] = byte;
  }
  return seen < 0x80;
}

}  // namespace

android::String16 toString16(std::string_view utf8) {
  if (utf8.size() <= kShortText) {
    char16_t wide[kShortText];
    if (widenAscii(utf8, wide)) return android::String16(wide, utf8.size());
  }
  if (wellFormedPrefix(utf8) == utf8.size()) return android::String16(utf8.data(), utf8.size());
  const std::string text = repaired(utf8);
  return android::String16(text.data(), text.size());
}

}  // namespace Torv::OS::Diagnostics
