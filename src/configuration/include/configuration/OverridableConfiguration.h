#pragma once

#include <memory>
#include <unordered_map>
#include <utility>

#include "configuration/IConfiguration.h"

namespace Torv {

// The top of the chain: a value set in this process wins over all layers below. The overrides have no lock:
// set them only while no other thread uses the object.
class OverridableConfiguration : public IConfiguration {
 public:
  // Takes `next` over, which must not be null. There are no overrides yet.
  explicit OverridableConfiguration(std::unique_ptr<IConfiguration> next);

  // Each replaces an earlier override of the same key and type. An override cannot be taken back. Overrides
  // of one key under several types live side by side, and any key is accepted, known or not. Maps cannot be
  // overridden.
  void setString(const std::string& key, std::string value) { mStrings[key] = std::move(value); }
  void setUint(const std::string& key, uint16_t value) { mUints[key] = value; }
  void setInt(const std::string& key, int32_t value) { mInts[key] = value; }
  void setBool(const std::string& key, bool value) { mBools[key] = value; }

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
  std::unique_ptr<IConfiguration> mNext;
  std::unordered_map<std::string, std::string> mStrings;
  std::unordered_map<std::string, uint16_t> mUints;
  std::unordered_map<std::string, int32_t> mInts;
  std::unordered_map<std::string, bool> mBools;
};

}  // namespace Torv
