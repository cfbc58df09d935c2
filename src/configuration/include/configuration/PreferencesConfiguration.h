#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include <ossdk/Preferences.h>

#include "base/Mutex.h"
#include "configuration/IConfiguration.h"

namespace Torv {

// Receives the store's notifications and passes changes on to callbacks. PreferencesConfiguration owns one
// and registers it with the store, which must release it before it is destroyed. Thread-safe.
class PreferencesConfigurationListenerWrapper : public OSSDK::Preferences::v4::IPreferencesListener {
 public:
  using Callback = std::function<void(OSSDK::Utils::IListString*)>;

  // Adds a callback for the life of the object; a change that is under way may not call it yet. An empty
  // callback is accepted; the next change then ends the process.
  void add(Callback callback);

  // The store is reached, or lost: of no interest, because look-ups ask the store itself.
  void onConnected() override {}
  void onDisconnected() override {}
  // Calls the callbacks in the order in which they were added, on the store's thread and without a lock.
  void onChanged(OSSDK::Utils::IListString* changedKeys) override;

 private:
  Base::Mutex mMutex;
  std::vector<Callback> mCallbacks GUARDED_BY(mMutex);
};

// The layer of the device's preferences store, reached through the OS SDK. It leaves a look-up to the next
// layer if the store does not hold the key under that type, if the store reports an error, or if there is no
// SDK.
//
// Look-ups are thread-safe, except for the first one with kKeepStore and kLazy, which sets up the store: make
// it before the object is shared between threads.
class PreferencesConfiguration : public IConfiguration {
 public:
  // With kKeepStore: set up the store at the first look-up instead of at construction.
  static constexpr unsigned short kLazy = 1;
  // Keep one store manager for the object's life and subscribe to changes. Without this flag, every look-up
  // opens the store and releases it, and there is no subscription.
  static constexpr unsigned short kKeepStore = 2;
  // After setting up the store, reset it to the next layer's values if the version in it is 4 or less.
  static constexpr unsigned short kCheckVersion = 4;
  // The flags of the service's own chain.
  static constexpr unsigned short kServiceFlags = kLazy;

  using Manager = OSSDK::Preferences::v4::IPreferencesManager;

  // Takes `next` over, which must not be null. `flags` is a sum of the flags above. With kKeepStore and not
  // kLazy it sets up the store, and blocks as long as the store does.
  PreferencesConfiguration(std::unique_ptr<IConfiguration> next, unsigned short flags);
  // Ends the subscription. Must not be called within a callback.
  ~PreferencesConfiguration() override;

  std::string getString(const std::string& key) const override;
  uint16_t getUint(const std::string& key) const override;
  int32_t getInt(const std::string& key) const override;
  bool getBool(const std::string& key) const override;
  std::map<std::string, std::string> getLocalStrMap(const std::string& key) const override;

  void registerPreferencesChangeCallback(std::function<void(void*)> callback) override;
  void registerPreferencesChangeCallback(const std::function<void()>& /*callback*/,
                                         const std::string& /*key*/) override {}
  size_t getCallbackSize() override { return 0; }
  void runCallbackFunctions() override {}

  // Returns the store manager that a look-up uses: the cached one, or with kKeepStore the one that it sets
  // up, or a new one, which is released with its last reference. Returns null if there is no SDK or it has no
  // store.
  std::shared_ptr<Manager> getPreferencesStoreManager() const;
  // Creates a store manager and caches it for the object's life. With kKeepStore it subscribes to the watched
  // keys; with kCheckVersion it then checks the version. Does nothing more if there is no SDK. Not
  // thread-safe.
  void setupPreferencesStoreManager() const;

 private:
  void checkKeyValueVersionAndOverwriteIfNeeded() const;

  const unsigned short mFlags;
  std::unique_ptr<IConfiguration> mNext;
  std::unordered_map<std::string, std::function<void()>> mKeyedCallbacks;  // stays empty
  mutable std::shared_ptr<Manager> mManager;
  mutable PreferencesConfigurationListenerWrapper mListener;
};

}  // namespace Torv
