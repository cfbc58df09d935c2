#include "base/Json.h"

#include <algorithm>
#include <memory>
#include <string>

#include <json/reader.h>

namespace Torv::Base {

using android::base::Error;
using android::base::Result;

namespace {

// How large a document would be for the reader.
struct Extent {
  size_t depth = 0;
  size_t values = 0;  // an upper bound
};

// Returns the position after the string that starts at `start`, as the reader would.
size_t skipString(std::string_view text, size_t start) {
  size_t at = start + 1;
  while (at < text.size() && text[at] != '"') at += text[at] == '\\' ? 2 : 1;
  return at + 1;
}

// Returns the position after the comment that starts at `start`, or after the slash if it starts no comment.
size_t skipComment(std::string_view text, size_t start) {
  const std::string_view opening = text.substr(start, 2);
  if (opening == "//") return std::min(text.find_first_of("\r\n", start), text.size());
  if (opening != "/*") return start + 1;
  const size_t end = text.find("*/", start + 2);
  return end == std::string_view::npos ? text.size() : end + 2;
}

// Counts what the reader would find before the first syntax error; it stops there. The reader throws if the
// text is nested too deep, so the depth must be known before it runs.
Extent measure(std::string_view text) {
  Extent extent;
  extent.values = 1;
  size_t depth = 0;
  for (size_t at = 0; at < text.size();) {
    const char c = text[at];
    if (c == '[' || c == '{') extent.depth = std::max(extent.depth, ++depth);
    if ((c == ']' || c == '}') && depth > 0) --depth;
    if (c == '[' || c == '{' || c == ',') ++extent.values;
    if (c == '"') {
      at = skipString(text, at);
    } else if (c == '/') {
      at = skipComment(text, at);
    } else {
      ++at;
    }
  }
  return extent;
}

// The library's reader is lenient by default.
std::unique_ptr<Json::CharReader> makeReader(JsonRules rules) {
  Json::CharReaderBuilder builder;
  if (rules == JsonRules::Strict) {
    for (const char* leniency : {"allowComments", "allowTrailingCommas"}) builder[leniency] = false;
    for (const char* check : {"failIfExtra", "rejectDupKeys"}) builder[check] = true;
  }
  // The reader's code for keeping comments can assert on input.
  builder["collectComments"] = false;
  return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

// Returns the beginning of the reader's message, "* Line 1, Column 2\n  Syntax error...\n...", on one line.
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

Result<Json::Value> parseJson(std::string_view text, JsonRules rules) {
  if (text.size() > kMaxJsonBytes) return Error() << "larger than " << kMaxJsonBytes << " bytes";
  const Extent extent = measure(text);
  if (extent.depth > kMaxJsonDepth) return Error() << "nested deeper than " << kMaxJsonDepth << " levels";
  if (extent.values > kMaxJsonValues) return Error() << "holds more than " << kMaxJsonValues << " values";
  Json::Value root;
  std::string message;
  if (!makeReader(rules)->parse(text.data(), text.data() + text.size(), &root, &message)) {
    return Error() << onOneLine(std::move(message));
  }
  return root;
}

const Json::Value* findMember(const Json::Value& object, std::string_view name) {
  if (!object.isObject()) return nullptr;
  return object.find(name.data(), name.data() + name.size());
}

}  // namespace Torv::Base
