#pragma once

#include <memory>
#include <unordered_map>

#include "configuration/IConfiguration.h"

namespace Torv {

// The top of the chain: a value set in this process wins over all layers below. The overrides have no lock:
// set them only while no other thread uses the object.
class OverridableConfiguration : public IConfiguration {
 public:
  // `next` must not be null.
  explicit OverridableConfiguration(std::unique_ptr<IConfiguration> next);

  // Each replaces an earlier override of the same key and type. Overrides of one key under several types live
  // side by side. Maps cannot be overridden.
  void setString(const std::string& key, std::string value);
  void setUint(const std::string& key, uint16_t value);
  void setInt(const std::string& key, int32_t value);
  void setBool(const std::string& key, bool value);

  std::string getString(const std::string& key) const override;
  uint16_t getUint(const std::string& key) const override;
  int32_t getInt(const std::string& key) const override;
  bool getBool(const std::string& key) const override;
  std::map<std::string, std::string> getLocalStrMap(const std::string& key) const override;

  void registerPreferencesChangeCallback(std::function<void(void*)> callback) override;
  void registerPreferencesChangeCallback(const std::function<void()>& callback,
                                         const std::string& key) override;
  size_t getCallbackSize() override;
  void runCallbackFunctions() override;

 private:
  std::unique_ptr<IConfiguration> mNext;
  std::unordered_map<std::string, std::string> mStrings;
  std::unordered_map<std::string, uint16_t> mUints;
  std::unordered_map<std::string, int32_t> mInts;
  std::unordered_map<std::string, bool> mBools;
};

}  // namespace Torv
