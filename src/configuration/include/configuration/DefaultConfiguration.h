#pragma once

#include <vector>

#include "configuration/IConfiguration.h"

namespace Torv {

// Which look-up of IConfiguration finds a key: getString, getBool, getUint, getInt or getLocalStrMap.
enum class SettingType { String, Bool, Uint, Int, StringMap };

// A known key, and the only type under which it is found. A value type.
struct Setting {
  std::string key;
  SettingType type;
};

// The bottom of the chain: answers with the compiled-in defaults, and with "", 0, -1, false or an empty map
// for a key that has none of that type. Its callback operations do nothing, and the count is 0. Never
// changes, so it is thread-safe.
class DefaultConfiguration : public IConfiguration {
 public:
  DefaultConfiguration();

  // Returns the keys that have a default, sorted by type (as in SettingType) and then by name. For programs
  // that show or check all settings.
  std::vector<Setting> settings() const;

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

 private:
  const std::map<std::string, std::string> mStrings;
  const std::map<std::string, bool> mBools;
  const std::map<std::string, uint16_t> mUints;
  const std::map<std::string, int32_t> mInts;
  const std::map<std::string, std::map<std::string, std::string>> mStringMaps;
};

}  // namespace Torv
