#include "configuration/JSONConfiguration.h"

#include <utility>

#include <android/log.h>

#include "ConfigurationLog.h"
#include "base/Json.h"

// The library's accessors assert if a value has another type, so each of them follows the test for its type.
namespace Torv {

using Base::findMember;

JSONConfiguration::JSONConfiguration(Json::Value root, std::unique_ptr<IConfiguration> next)
    : mRoot(std::move(root)), mNext(std::move(next)) {}

std::string JSONConfiguration::getString(const std::string& key) const {
  const Json::Value* member = findMember(mRoot, key);
  return member != nullptr && member->isString() ? member->asString() : mNext->getString(key);
}

uint16_t JSONConfiguration::getUint(const std::string& key) const {
  const Json::Value* member = findMember(mRoot, key);
  if (member == nullptr || !member->isUInt()) return mNext->getUint(key);
  return static_cast<uint16_t>(member->asUInt());
}

int32_t JSONConfiguration::getInt(const std::string& key) const {
  const Json::Value* member = findMember(mRoot, key);
  return member != nullptr && member->isInt() ? member->asInt() : mNext->getInt(key);
}

bool JSONConfiguration::getBool(const std::string& key) const {
  const Json::Value* member = findMember(mRoot, key);
  return member != nullptr && member->isBool() ? member->asBool() : mNext->getBool(key);
}

std::map<std::string, std::string> JSONConfiguration::getLocalStrMap(const std::string& key) const {
  const Json::Value* member = findMember(mRoot, key);
  if (member == nullptr || !member->isObject()) return mNext->getLocalStrMap(key);
  std::map<std::string, std::string> fields;
  for (auto field = member->begin(); field != member->end(); ++field) {  // in ascending order of the names
    if (field->isConvertibleTo(Json::stringValue)) {
      fields.emplace(field.name(), field->asString());
    } else {
      __android_log_print(ANDROID_LOG_WARN, kConfigurationLogTag,
                          "Map field \"%s\" cannot be converted to string", field.name().c_str());
    }
  }
  return fields;
}

}  // namespace Torv
