#pragma once

#include <memory>

#include <json/value.h>

#include "configuration/IConfiguration.h"

namespace Torv {

// The layer of a parsed configuration file: an object's member answers where it has the right JSON type. A
// file's map answers for the whole key, even where it ends empty; fields that are arrays or objects are left
// out of it with a warning.
class JSONConfiguration : public IConfiguration {
 public:
  // A root that is no object answers nothing.
  JSONConfiguration(Json::Value root, std::unique_ptr<IConfiguration> next);

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
  const Json::Value mRoot;
  std::unique_ptr<IConfiguration> mNext;
};

}  // namespace Torv
