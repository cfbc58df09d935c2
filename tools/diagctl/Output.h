// What diagctl prints: tables for people, JSON for programs. All text in it comes from other processes and is
// trusted by neither.
#pragma once

#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <android-base/result.h>
#include <binder/PersistableBundle.h>
#include <json/value.h>
#include <utils/String16.h>

#include "timeline/Chart.h"

#include "text/Text.h"

namespace diagctl {

// Pairs of texts that stand side by side.
using Rows = std::vector<std::pair<std::string, std::string>>;

std::string toUtf8(const android::String16& text);

using ::text::printable;

// Two columns, the left one as wide as its widest text, each line behind `indent` spaces.
std::string table(const Rows& rows, size_t indent);

// The string, or the bundle, under `key`; empty if the bundle has none of that type.
std::string stringOf(const android::os::PersistableBundle& bundle, const android::String16& key);
android::os::PersistableBundle childOf(const android::os::PersistableBundle& bundle,
                                       const android::String16& key);

// The bundle's strings by key, in the order of the keys, both made printable.
Rows stringRows(const android::os::PersistableBundle& bundle);

// The bundle's numbers, strings and bundles as a JSON object, which is all that the service's answers hold. A
// string that is itself a JSON object or array is nested as such, every other one stays a string.
Json::Value toJson(const android::os::PersistableBundle& bundle);

// Writes the document and a newline to stdout, in ASCII. A write that fails shows in ferror(stdout), which
// main looks at.
void printJson(const Json::Value& document);

// Prints one value and a newline: to the byte for a program, made printable on a terminal.
void printValue(std::string_view value);

// The width of the terminal that stdout is; without one COLUMNS, or 80.
size_t terminalColumns();

// Blocks in a UTF-8 locale, else characters that every terminal has.
timeline::Glyphs glyphs();

// `lines` with those that are too long for the terminal continued on further lines behind `indent` spaces. As
// they are if stdout is no terminal.
std::string folded(const std::string& lines, size_t indent);

// Creates or empties the file and writes `contents`. Returns an error that names the file if that fails.
[[nodiscard]] android::base::Result<void> writeFile(const std::string& path, std::string_view contents);

}  // namespace diagctl
