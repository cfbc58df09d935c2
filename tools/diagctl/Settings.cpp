#include "Settings.h"

#include <json/writer.h>

#include "configuration/ConfigurationKeys.h"
#include "systemcontext/ContextKeys.h"

namespace diagctl {

using Torv::Setting;
using Torv::SettingType;

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

// The defaults list themselves. Only the settings without a default have to be added by hand.
std::vector<Setting> knownSettings() {
  namespace ContextKeys = Torv::OS::Diagnostics::ContextKeys;
  std::vector<Setting> settings = Torv::DefaultConfiguration().settings();
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
