#include "Text16.h"

#include <string>

namespace Torv::OS::Diagnostics {
namespace {

constexpr std::string_view kReplacementCharacter = "\xef\xbf\xbd";

bool isBetween(unsigned char byte, unsigned char low, unsigned char high) {
  return byte >= low && byte <= high;
}

// Returns the length in bytes of the character that `text` begins with, or 0 if those bytes are malformed
// (Unicode, table 3-7). `text` is not empty.
size_t characterLength(std::string_view text) {
  const auto at = [text](size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char first = at(0);
  if (first < 0x80) return 1;
  size_t length = 0;
  unsigned char low = 0x80;  // the bounds of the second byte exclude overlong forms and surrogates
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

// Returns how many bytes at the beginning of `text` are well-formed characters.
size_t wellFormedPrefix(std::string_view text) {
  size_t end = 0;
  while (end < text.size()) {
    const size_t length = characterLength(text.substr(end));
    if (length == 0) break;
    end += length;
  }
  return end;
}

// Returns `text` with U+FFFD instead of each malformed byte.
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

constexpr size_t kShortText = 256;

// Writes each byte as a UTF-16 unit. Returns the bits that occur in any of the bytes.
inline unsigned char widen(const char* __restrict bytes, size_t count, char16_t* __restrict units) {
  unsigned char seen = 0;
  for (size_t i = 0; i < count; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    seen |= byte;
    units[i] = byte;
  }
  return seen;
}

// Writes each byte of `text` as a UTF-16 unit to `out`. Returns false if a byte is not ASCII; `out` is then
// of no use. Blocks of constant size let the compiler use vector instructions at -O2: a system context with
// full histories takes 0.7 million instructions less, of 16.5 million.
bool widenAscii(std::string_view text, char16_t* out) {
  constexpr size_t kBlock = 16;
  const size_t beforeBlocks = text.size() % kBlock;
  unsigned char seen = widen(text.data(), beforeBlocks, out);
  for (size_t i = beforeBlocks; i < text.size(); i += kBlock) seen |= widen(text.data() + i, kBlock, out + i);
  return seen < 0x80;
}

}  // namespace

android::String16 toString16(std::string_view utf8) {
  // Almost all text is ASCII, which one pass widens. The platform's conversion makes two, and the search for
  // malformed bytes is a third. Most text is short and needs no memory from the heap to be widened in.
  char16_t forShort[kShortText];
  std::u16string forLong(utf8.size() <= kShortText ? 0 : utf8.size(), u'\0');
  char16_t* const wide = forLong.empty() ? forShort : forLong.data();
  if (widenAscii(utf8, wide)) return android::String16(wide, utf8.size());
  if (wellFormedPrefix(utf8) == utf8.size()) return android::String16(utf8.data(), utf8.size());
  const std::string text = repaired(utf8);
  return android::String16(text.data(), text.size());
}

}  // namespace Torv::OS::Diagnostics
