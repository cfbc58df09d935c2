#include "Output.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include <fmt/format.h>
#include <json/writer.h>
#include <utils/String8.h>

#include "base/Json.h"

namespace diagctl {
namespace {

using android::String16;
using android::os::PersistableBundle;

// Characters that move the cursor, change what follows them or reorder the line: the control characters, and
// the marks of line ends and of writing direction.
bool isControl(char32_t character) {
  return character < 0x20 || (character >= 0x7f && character <= 0x9f) ||
         (character >= 0x200e && character <= 0x200f) || (character >= 0x2028 && character <= 0x202e) ||
         (character >= 0x2066 && character <= 0x2069);
}

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
std::pair<size_t, char32_t> frontCharacter(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  const size_t length = first < 0x80 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  if (length == 1 || first < 0xc0 || length > text.size()) return {1, first};
  char32_t character = first & (0xffu >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xc0) != 0x80) return {1, first};
    character = (character << 6) | (next & 0x3fu);
  }
  return {length, character};
}

// How many columns a terminal gives to printable text: one a character is near enough for a table.
size_t width(std::string_view text) {
  size_t columns = 0;
  for (const char byte : text) columns += (static_cast<unsigned char>(byte) & 0xc0) != 0x80;
  return columns;
}

Json::Value nestedOrString(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first != std::string::npos && (text[first] == '{' || text[first] == '[')) {
    auto value = Torv::Base::parseJson(text, Torv::Base::JsonRules::Strict);
    if (value.ok()) return *std::move(value);
  }
  return text;
}

}  // namespace

std::string toUtf8(const String16& text) {
  const android::String8 utf8(text);
  return {utf8.string(), utf8.size()};
}

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

std::string table(const Rows& rows, size_t indent) {
  size_t widest = 0;
  for (const auto& [left, right] : rows) widest = std::max(widest, width(left));
  std::string text;
  for (const auto& [left, right] : rows) {
    text += std::string(indent, ' ') + left;
    if (!right.empty()) text += std::string(widest - width(left) + 2, ' ') + right;
    text += '\n';
  }
  return text;
}

std::string stringOf(const PersistableBundle& bundle, const String16& key) {
  String16 value;
  bundle.getString(key, &value);
  return toUtf8(value);
}

PersistableBundle childOf(const PersistableBundle& bundle, const String16& key) {
  PersistableBundle child;
  bundle.getPersistableBundle(key, &child);
  return child;
}

Rows stringRows(const PersistableBundle& bundle) {
  Rows rows;
  for (const String16& key : bundle.getStringKeys()) {
    rows.emplace_back(printable(toUtf8(key)), printable(stringOf(bundle, key)));
  }
  return rows;
}

Json::Value toJson(const PersistableBundle& bundle) {
  Json::Value object(Json::objectValue);
  for (const String16& key : bundle.getIntKeys()) {
    int32_t value = 0;
    bundle.getInt(key, &value);
    object[toUtf8(key)] = value;
  }
  for (const String16& key : bundle.getStringKeys()) {
    object[toUtf8(key)] = nestedOrString(stringOf(bundle, key));
  }
  for (const String16& key : bundle.getPersistableBundleKeys()) {
    object[toUtf8(key)] = toJson(childOf(bundle, key));
  }
  return object;
}

void printJson(const Json::Value& document) {
  Json::StreamWriterBuilder settings;
  settings["precision"] = 15;  // what a double holds for certain: 93.6 and not 93.599999999999994
  settings["indentation"] = "  ";
  printf("%s\n", Json::writeString(settings, document).c_str());
}

}  // namespace diagctl
