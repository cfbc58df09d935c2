#include "configuration/OverridableConfiguration.h"

#include <utility>

namespace Torv {

OverridableConfiguration::OverridableConfiguration(std::unique_ptr<IConfiguration> next)
    : mNext(std::move(next)) {}

void OverridableConfiguration::setString(const std::string& key, std::string value) {
  mStrings[key] = std::move(value);
}

void OverridableConfiguration::setUint(const std::string& key, uint16_t value) {
  mUints[key] = value;
}

void OverridableConfiguration::setInt(const std::string& key, int32_t value) {
  mInts[key] = value;
}

void OverridableConfiguration::setBool(const std::string& key, bool value) {
  mBools[key] = value;
}

std::string OverridableConfiguration::getString(const std::string& key) const {
  const auto found = mStrings.find(key);
  return found != mStrings.end() ? found->second : mNext->getString(key);
}

uint16_t OverridableConfiguration::getUint(const std::string& key) const {
  const auto found = mUints.find(key);
  return found != mUints.end() ? found->second : mNext->getUint(key);
}

int32_t OverridableConfiguration::getInt(const std::string& key) const {
  const auto found = mInts.find(key);
  return found != mInts.end() ? found->second : mNext->getInt(key);
}

bool OverridableConfiguration::getBool(const std::string& key) const {
  const auto found = mBools.find(key);
  return found != mBools.end() ? found->second : mNext->getBool(key);
}

std::map<std::string, std::string> OverridableConfiguration::getLocalStrMap(const std::string& key) const {
  return mNext->getLocalStrMap(key);
}

void OverridableConfiguration::registerPreferencesChangeCallback(std::function<void(void*)> callback) {
  mNext->registerPreferencesChangeCallback(std::move(callback));
}

void OverridableConfiguration::registerPreferencesChangeCallback(const std::function<void()>& callback,
                                                                 const std::string& key) {
  mNext->registerPreferencesChangeCallback(callback, key);
}

size_t OverridableConfiguration::getCallbackSize() {
  return mNext->getCallbackSize();
}

void OverridableConfiguration::runCallbackFunctions() {
  mNext->runCallbackFunctions();
}

}  // namespace Torv
