#include "Settings.h"

#include <json/writer.h>

#include "configuration/ConfigurationKeys.h"
#include "systemcontext/ContextKeys.h"

namespace diagctl {

using Torv::Setting;
using Torv::SettingType;

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

std::vector<Setting> knownSettings() {
  namespace ContextKeys = Torv::OS::Diagnostics::ContextKeys;
  std::vector<Setting> settings = Torv::DefaultConfiguration().settings();
  settings.push_back({Torv::ConfigurationKeys::kKeyValueVersion, SettingType::Int});
  settings.push_back({ContextKeys::kSessionContextSetting, SettingType::String});
  settings.push_back({ContextKeys::kTestContextSetting, SettingType::String});
  return settings;
}

std::string plainText(const Json::Value& value) {
  if (value.isString()) return value.asString();
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

}  // namespace diagctl
