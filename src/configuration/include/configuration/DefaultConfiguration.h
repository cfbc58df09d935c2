#pragma once

#include "configuration/IConfiguration.h"

namespace Torv {

// The bottom of the chain: answers with the compiled-in defaults, and with "", 0, -1, false or an empty map
// for a key that has none of that type. Its callback operations do nothing, and the count is 0. Never
// changes, so it is thread-safe.
class DefaultConfiguration : public IConfiguration {
 public:
  DefaultConfiguration();

  std::string getString(const std::string& key) const override;
  uint16_t getUint(const std::string& key) const override;
  int32_t getInt(const std::string& key) const override;
  bool getBool(const std::string& key) const override;
  std::map<std::string, std::string> getLocalStrMap(const std::string& key) const override;

  void registerPreferencesChangeCallback(std::function<void(void*)> /*callback*/) override {}
  void registerPreferencesChangeCallback(const std::function<void()>& /*callback*/,
                                         const std::string& /*key*/) override {}
  size_t getCallbackSize() override { return 0; }
  void runCallbackFunctions() override {}

  // The tables of defaults, one for each type of look-up. Valid as long as the object.
  const std::map<std::string, std::string>& strings() const { return mStrings; }
  const std::map<std::string, bool>& bools() const { return mBools; }
  const std::map<std::string, uint16_t>& uints() const { return mUints; }
  const std::map<std::string, int32_t>& ints() const { return mInts; }
  const std::map<std::string, std::map<std::string, std::string>>& stringMaps() const { return mStringMaps; }

 private:
  const std::map<std::string, std::string> mStrings;
  const std::map<std::string, bool> mBools;
  const std::map<std::string, uint16_t> mUints;
  const std::map<std::string, int32_t> mInts;
  const std::map<std::string, std::map<std::string, std::string>> mStringMaps;
};

}  // namespace Torv
