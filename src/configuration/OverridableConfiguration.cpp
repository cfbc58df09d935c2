#include "configuration/OverridableConfiguration.h"

#include <utility>

namespace Torv {

OverridableConfiguration::OverridableConfiguration(std::unique_ptr<IConfiguration> next)
    : mNext(std::move(next)) {}

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

}  // namespace Torv
