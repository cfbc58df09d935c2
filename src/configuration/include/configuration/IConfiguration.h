// One layer of the crash reporter's settings, and everything that stands below it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace Torv {

// A look-up never fails: a layer answers or hands on to the next one, and the last answers unknown keys with
// "", 0, -1, false or an empty map. A key has one type; under another it is not found. Look-ups may be made
// from several threads at once.
class IConfiguration {
 public:
  virtual std::string getString(const std::string& key) const = 0;
  // A larger number is narrowed to its low 16 bits.
  virtual uint16_t getUint(const std::string& key) const = 0;
  virtual int32_t getInt(const std::string& key) const = 0;
  virtual bool getBool(const std::string& key) const = 0;
  virtual std::map<std::string, std::string> getLocalStrMap(const std::string& key) const = 0;

  // `callback` is called on the preferences store's thread after a change there, with the list of changed
  // keys (an OSSDK::Utils::IListString*, valid during the call). Register before look-ups begin.
  virtual void registerPreferencesChangeCallback(std::function<void(void*)> callback) = 0;
  // No layer acts on the keyed form or on the two operations below: the count is 0.
  virtual void registerPreferencesChangeCallback(const std::function<void()>& callback,
                                                 const std::string& key) = 0;
  virtual size_t getCallbackSize() = 0;
  virtual void runCallbackFunctions() = 0;

  virtual ~IConfiguration() = default;
};

}  // namespace Torv
