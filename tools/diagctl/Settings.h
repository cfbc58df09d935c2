#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace diagctl {

// Which look-up of Torv::IConfiguration finds a key: getString, getBool, getUint, getInt or getLocalStrMap.
enum class SettingType { String, Bool, Uint, Int, StringMap };

// A known key, and the only type under which it is found.
struct Setting {
  std::string key;
  SettingType type;
};

// What a setting's type is called on the command line.
const char* nameOf(SettingType type);

// Every setting that somebody reads: those with a default, sorted by type and then by name, and those that
// have none.
std::vector<Setting> knownSettings();

// A value as text: a string as it is, anything else as JSON.
std::string plainText(const Json::Value& value);

}  // namespace diagctl
