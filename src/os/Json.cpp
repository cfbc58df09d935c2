#include "os/Json.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include <json/reader.h>
#include <unistd.h>

namespace Torv::OS {
namespace {

struct Shape {
  size_t depth = 0;
  size_t values = 0;  // at most this many
};

// The position behind the string that starts at `start`, as the reader finds it.
size_t skipString(std::string_view text, size_t start) {
  size_t at = start + 1;
  while (at < text.size() && text[at] != '"') at += text[at] == '\\' ? 2 : 1;
  return at + 1;
}

// The position behind the comment that starts at `start`, or behind the slash where none does.
size_t skipComment(std::string_view text, size_t start) {
  const std::string_view opening = text.substr(start, 2);
  if (opening == "//") return std::min(text.find_first_of("\r\n", start), text.size());
  if (opening != "/*") return start + 1;
  const size_t end = text.find("*/", start + 2);
  return end == std::string_view::npos ? text.size() : end + 2;
}

// Counts what the reader would find up to the first fault of the text; behind one it opens nothing more. It
// throws when it nests too deep, so this must be known beforehand.
Shape shapeOf(std::string_view text) {
  Shape shape;
  shape.values = 1;
  size_t depth = 0;
  for (size_t at = 0; at < text.size();) {
    const char c = text[at];
    if (c == '[' || c == '{') shape.depth = std::max(shape.depth, ++depth);
    if ((c == ']' || c == '}') && depth > 0) --depth;
    if (c == '[' || c == '{' || c == ',') ++shape.values;
    if (c == '"') {
      at = skipString(text, at);
    } else if (c == '/') {
      at = skipComment(text, at);
    } else {
      ++at;
    }
  }
  return shape;
}

std::unique_ptr<Json::CharReader> makeReader(JsonRules rules) {
  Json::CharReaderBuilder builder;
  if (rules == JsonRules::Strict) {
    for (const char* leniency : {"allowComments", "allowTrailingCommas"}) builder[leniency] = false;
    for (const char* check : {"failIfExtra", "rejectDupKeys"}) builder[check] = true;
  }
  // Keeping comments has assertions of its own.
  builder["collectComments"] = false;
  return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

// "* Line 1, Column 2\n  Syntax error...\n..." as one line, its beginning.
std::string onOneLine(std::string message) {
  constexpr size_t kMaxLength = 160;
  message.resize(std::min(message.size(), kMaxLength));
  std::string line;
  for (const char c : message) {
    const bool isSpace = c == ' ' || c == '\n' || c == '*';
    if (!isSpace) {
      line += c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  return line.substr(0, line.find_last_not_of(' ') + 1);
}

}  // namespace

std::optional<Json::Value> parseJson(std::string_view text, std::string& error, JsonRules rules) {
  if (text.size() > kMaxJsonBytes) {
    error = "larger than " + std::to_string(kMaxJsonBytes) + " bytes";
    return std::nullopt;
  }
  const Shape shape = shapeOf(text);
  if (shape.depth > kMaxJsonDepth) {
    error = "nested deeper than " + std::to_string(kMaxJsonDepth) + " levels";
    return std::nullopt;
  }
  if (shape.values > kMaxJsonValues) {
    error = "holds more than " + std::to_string(kMaxJsonValues) + " values";
    return std::nullopt;
  }
  Json::Value root;
  std::string message;
  if (!makeReader(rules)->parse(text.data(), text.data() + text.size(), &root, &message)) {
    error = onOneLine(std::move(message));
    return std::nullopt;
  }
  return root;
}

std::optional<std::string> readJsonText(int fd) {
  constexpr size_t kStep = size_t{64} << 10;
  std::string text;
  size_t length = 0;
  while (length <= kMaxJsonBytes) {
    text.resize(std::min(length + kStep, kMaxJsonBytes + 1));
    const ssize_t got = TEMP_FAILURE_RETRY(read(fd, text.data() + length, text.size() - length));
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    length += static_cast<size_t>(got);
  }
  text.resize(length);
  return text;
}

const Json::Value* findMember(const Json::Value& object, std::string_view name) {
  if (!object.isObject()) return nullptr;
  return object.find(name.data(), name.data() + name.size());
}

}  // namespace Torv::OS
