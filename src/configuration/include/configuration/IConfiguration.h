// The crash reporter's settings: a chain of layers, each of which is an IConfiguration.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace Torv {

// One layer and all layers below it. A look-up never fails: a layer answers or asks the layer below, and the
// lowest answers an unknown key with "", 0, -1, false or an empty map. Each key has one type; a layer does
// not find it under another type. ConfigurationKeys.h lists the keys with their types and units. The caller
// owns what a look-up returns. Look-ups may be made by several threads at once.
class IConfiguration {
 public:
  virtual std::string getString(const std::string& key) const = 0;
  // Returns the low 16 bits of a number that does not fit.
  virtual uint16_t getUint(const std::string& key) const = 0;
  virtual int32_t getInt(const std::string& key) const = 0;
  virtual bool getBool(const std::string& key) const = 0;
  virtual std::map<std::string, std::string> getLocalStrMap(const std::string& key) const = 0;

  // Adds a callback, which the preferences store's thread calls after a change there with the list of changed
  // keys (an OSSDK::Utils::IListString*, valid during the call). The layer keeps the callback for its life.
  // Register before look-ups begin.
  virtual void registerPreferencesChangeCallback(std::function<void(void*)> callback) = 0;
  // The next three exist for callbacks of single keys. They do nothing in any layer: a callback is dropped,
  // never called, and the count is 0.
  virtual void registerPreferencesChangeCallback(const std::function<void()>& callback,
                                                 const std::string& key) = 0;
  virtual size_t getCallbackSize() = 0;
  virtual void runCallbackFunctions() = 0;

  virtual ~IConfiguration() = default;
};

}  // namespace Torv
