#include "Settings.h"

#include <json/writer.h>

#include "configuration/ConfigurationKeys.h"
#include "configuration/DefaultConfiguration.h"
#include "systemcontext/ContextKeys.h"

namespace diagctl {

// Without a default branch, so that the compiler names a type that is missing here.
const char* nameOf(SettingType type) {
  switch (type) {
    case SettingType::String:
      return "string";
    case SettingType::Bool:
      return "bool";
    case SettingType::Uint:
      return "uint";
    case SettingType::Int:
      return "int";
    case SettingType::StringMap:
      return "map";
  }
  return "";
}

// The tables of defaults name most keys. Only the settings without a default have to be added by hand.
std::vector<Setting> knownSettings() {
  namespace ContextKeys = Torv::OS::Diagnostics::ContextKeys;
  const Torv::DefaultConfiguration defaults;
  std::vector<Setting> settings;
  const auto add = [&settings](const auto& table, SettingType type) {
    for (const auto& entry : table) settings.push_back({entry.first, type});
  };
  add(defaults.strings(), SettingType::String);
  add(defaults.bools(), SettingType::Bool);
  add(defaults.uints(), SettingType::Uint);
  add(defaults.ints(), SettingType::Int);
  add(defaults.stringMaps(), SettingType::StringMap);
  settings.push_back({Torv::ConfigurationKeys::kKeyValueVersion, SettingType::Int});
  settings.push_back({ContextKeys::kSessionContextSetting, SettingType::String});
  settings.push_back({ContextKeys::kTestContextSetting, SettingType::String});
  return settings;
}

// Strings lose their quotes, so that what `pref get` prints can be given to `pref set`.
std::string plainText(const Json::Value& value) {
  if (value.isString()) return value.asString();
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

}  // namespace diagctl
