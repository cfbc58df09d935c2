#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include <ossdk/Preferences.h>

#include "base/Mutex.h"
#include "configuration/IConfiguration.h"

namespace Torv {

// What the store tells of changes, passed on to callbacks.
class PreferencesConfigurationListenerWrapper : public OSSDK::Preferences::v4::IPreferencesListener {
 public:
  using Callback = std::function<void(OSSDK::Utils::IListString*)>;

  void add(Callback callback);

  void onConnected() override;
  void onDisconnected() override;
  // Calls the callbacks in the order in which they were added. An empty one ends the process.
  void onChanged(OSSDK::Utils::IListString* changedKeys) override;

 private:
  Base::Mutex mMutex;
  std::vector<Callback> mCallbacks GUARDED_BY(mMutex);
};

// The layer of the device's preferences store, reached through the OS SDK. A key that the store does not
// hold under the asked type, a store that answers with an error, and a missing SDK all hand the look-up on.
//
// With kKeepStore and kLazy the store is set up by the first look-up: make that before sharing the object
// between threads.
class PreferencesConfiguration : public IConfiguration {
 public:
  // Put the store's manager off until the first look-up.
  static constexpr unsigned short kLazy = 1;
  // Keep one manager for the object's life and subscribe to changes. Without it every look-up opens the
  // store anew, and nothing is subscribed.
  static constexpr unsigned short kKeepStore = 2;
  // After setting up the kept store, reset it to the next layer's values where its version asks for that.
  static constexpr unsigned short kCheckVersion = 4;
  // What the service uses.
  static constexpr unsigned short kServiceFlags = kLazy;

  PreferencesConfiguration(std::unique_ptr<IConfiguration> next, unsigned short flags);
  // Not from within a callback.
  ~PreferencesConfiguration() override;

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
  using Manager = OSSDK::Preferences::v4::IPreferencesManager;

  // Null where the SDK has no store to offer.
  std::shared_ptr<Manager> getPreferencesStoreManager() const;
  // Only with kKeepStore.
  void setupPreferencesStoreManager() const;
  void checkKeyValueVersionAndOverwriteIfNeeded() const;

  const unsigned short mFlags;
  std::unique_ptr<IConfiguration> mNext;
  std::unordered_map<std::string, std::function<void()>> mKeyedCallbacks;
  mutable std::shared_ptr<Manager> mManager;
  mutable PreferencesConfigurationListenerWrapper mListener;
};

}  // namespace Torv
