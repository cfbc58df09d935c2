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
