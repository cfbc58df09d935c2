#include "Output.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <json/writer.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utils/String8.h>

#include "base/Json.h"

namespace diagctl {
namespace {

using android::String16;
using android::os::PersistableBundle;

// Strict, so that a text which merely begins like JSON stays as it was published. A bare number is no
// document: "1.10" must not become 1.1.
Json::Value nestedOrString(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first != std::string::npos && (text[first] == '{' || text[first] == '[')) {
    auto value = Torv::Base::parseJson(text, Torv::Base::JsonRules::Strict);
    if (value.ok()) return *std::move(value);
  }
  return text;
}

}  // namespace

// Unpaired surrogates become U+FFFD, so the result is valid UTF-8 whatever an application has published.
std::string toUtf8(const String16& text) {
  const android::String8 utf8(text);
  return {utf8.string(), utf8.size()};
}

// Rows without a right side get no blanks at their end, which a narrow terminal would wrap.
std::string table(const Rows& rows, size_t indent) {
  size_t widest = 0;
  for (const auto& [left, right] : rows) widest = std::max(widest, text::columnsOf(left));
  std::string lines;
  for (const auto& [left, right] : rows) {
    lines += std::string(indent, ' ') + left;
    if (!right.empty()) lines += std::string(widest - text::columnsOf(left) + 2, ' ') + right;
    lines += '\n';
  }
  return lines;
}

// getString() leaves its result as it is if there is no string, so a missing one comes out empty.
std::string stringOf(const PersistableBundle& bundle, const String16& key) {
  String16 value;
  bundle.getString(key, &value);
  return toUtf8(value);
}

// A missing child is an empty one: callers then print an empty table and need no other path.
PersistableBundle childOf(const PersistableBundle& bundle, const String16& key) {
  PersistableBundle child;
  bundle.getPersistableBundle(key, &child);
  return child;
}

// getStringKeys() gives the keys in their order, so two answers can be compared line by line.
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

// The output of a program is piped to other programs, which must get back what was stored.
void printValue(std::string_view value) {
  const std::string text = isatty(STDOUT_FILENO) != 0 ? printable(value) : std::string(value);
  printf("%s\n", text.c_str());
}

// COLUMNS is what a shell leaves behind; the terminal itself knows better.
size_t terminalColumns() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  const char* const said = getenv("COLUMNS");
  const long columns = said == nullptr ? 0 : strtol(said, nullptr, 10);
  constexpr long kMost = 1000;
  return columns > 0 && columns <= kMost ? static_cast<size_t>(columns) : 80;
}

// What the locale says: a terminal cannot be asked which characters it has. main() has set the locale from
// the environment.
timeline::Glyphs glyphs() {
  const bool utf8 = std::string_view(nl_langinfo(CODESET)) == "UTF-8";
  return utf8 ? timeline::Glyphs::Blocks : timeline::Glyphs::Ascii;
}

// Programs that read the output want whole lines, so only a terminal gets them folded.
std::string folded(const std::string& lines, size_t indent) {
  const size_t columns = terminalColumns();
  if (isatty(STDOUT_FILENO) == 0 || columns <= 2 * indent) return lines;
  std::string result;
  for (size_t at = 0; at < lines.size();) {
    const size_t end = std::min(lines.find('\n', at), lines.size());
    std::string_view line = std::string_view(lines).substr(at, end - at);
    at = end + 1;
    for (size_t left = columns;; left = columns - indent) {
      // At least one byte a line, or a terminal narrower than one character would loop for ever.
      const size_t fits =
          std::max<size_t>(text::cutTo(left, line, "").size(), std::min<size_t>(line.size(), 1));
      result.append(line.substr(0, fits)) += '\n';
      line.remove_prefix(fits);
      if (line.empty()) break;
      result.append(indent, ' ');
    }
  }
  return result;
}

android::base::Result<void> writeFile(const std::string& path, std::string_view contents) {
  android::base::unique_fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0644));
  if (!fd.ok()) return android::base::ErrnoError() << "cannot create " << path;
  // The file stays as it is after an error: part of a page or a trace may still help.
  // Some file systems tell of a full disk at close(2) only.
  if (!android::base::WriteFully(fd.get(), contents.data(), contents.size()) || close(fd.release()) != 0) {
    return android::base::ErrnoError() << "cannot write " << path;
  }
  return {};
}

// jsoncpp escapes everything beyond ASCII here, control characters too, so no terminal acts on it.
void printJson(const Json::Value& document) {
  Json::StreamWriterBuilder settings;
  settings["precision"] = 15;  // what a double holds for certain: 93.6 and not 93.599999999999994
  settings["indentation"] = "  ";
  printf("%s\n", Json::writeString(settings, document).c_str());
}

}  // namespace diagctl
