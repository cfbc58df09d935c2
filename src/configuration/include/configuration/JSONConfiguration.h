#pragma once

#include <memory>
#include <utility>

#include <json/value.h>

#include "configuration/IConfiguration.h"

namespace Torv {

// The layer of a parsed configuration file. It answers if the root has a member of the key's name and of the
// JSON type that was asked for: a string, an integer of 32 bits (for getUint an unsigned one), a boolean or
// an object. An object answers for its whole key, even if no field remains: fields that are arrays or objects
// are left out with a warning, all others become text. Never changes, so it is thread-safe.
class JSONConfiguration : public IConfiguration {
 public:
  // Takes over both. A root that is no object leaves all look-ups to `next`, which must not be null.
  JSONConfiguration(Json::Value root, std::unique_ptr<IConfiguration> next);

  std::string getString(const std::string& key) const override;
  uint16_t getUint(const std::string& key) const override;
  int32_t getInt(const std::string& key) const override;
  bool getBool(const std::string& key) const override;
  std::map<std::string, std::string> getLocalStrMap(const std::string& key) const override;

  void registerPreferencesChangeCallback(std::function<void(void*)> callback) override {
    mNext->registerPreferencesChangeCallback(std::move(callback));
  }
  void registerPreferencesChangeCallback(const std::function<void()>& callback,
                                         const std::string& key) override {
    mNext->registerPreferencesChangeCallback(callback, key);
  }
  size_t getCallbackSize() override { return mNext->getCallbackSize(); }
  void runCallbackFunctions() override { mNext->runCallbackFunctions(); }

 private:
  const Json::Value mRoot;
  std::unique_ptr<IConfiguration> mNext;
};

}  // namespace Torv
