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

#include <binder/PersistableBundle.h>
#include <json/value.h>
#include <utils/String16.h>

#include "text/Text.h"

namespace diagctl {

// Pairs of texts that stand side by side.
using Rows = std::vector<std::pair<std::string, std::string>>;

std::string toUtf8(const android::String16& text);

using ::text::printable;

// Two columns, the left one as wide as its widest text, each line behind `indent` spaces.
std::string table(const Rows& rows, size_t indent);

// The string under `key`, or the bundle; empty where there is none.
std::string stringOf(const android::os::PersistableBundle& bundle, const android::String16& key);
android::os::PersistableBundle childOf(const android::os::PersistableBundle& bundle,
                                       const android::String16& key);

// The bundle's strings by key, in the order of the keys, both made printable.
Rows stringRows(const android::os::PersistableBundle& bundle);

// The bundle's numbers, strings and bundles as a JSON object, which is all that the service's answers hold. A
// string that is itself a JSON object or array is nested as such, every other one stays a string.
Json::Value toJson(const android::os::PersistableBundle& bundle);

// Writes the document and a newline to stdout, in ASCII.
void printJson(const Json::Value& document);

}  // namespace diagctl
