// The preferences interface of the OS SDK, version 4. The module offers two entry points with C linkage,
// looked up by name. Each takes the interface version; for another version it returns null or does nothing.
#pragma once

#include <cstdint>

#include "ossdk/Types.h"

namespace OSSDK::Preferences::v4 {

inline constexpr int kVersion = 4;

class IPreferencesManager;

using CreatePreferencesManager = IPreferencesManager*(int version);
using DestroyPreferencesManager = void(int version, IPreferencesManager* manager);

inline constexpr char kCreatePreferencesManager[] = "createPreferencesManager";
inline constexpr char kDestroyPreferencesManager[] = "destroyPreferencesManager";

enum Status : int32_t {
  kOk = 0,
  kNotFound = 1,   // no such key, or its value is of another type or out of the type's range
  kStoreError = 2  // the store cannot be read, written or watched
};

// Is called on a thread of the store. The calls of one registration come one at a time; a listener that is
// registered twice may be called by two threads at once.
class IPreferencesListener {
 public:
  // Watching has begun. Every change from here on is reported.
  virtual void onConnected() = 0;
  // Watching has ended before the manager did.
  virtual void onDisconnected() = 0;
  // Those of the watched keys that were set, changed or removed since the last call.
  virtual void onChanged(Utils::IListString* changedKeys) = 0;

 protected:
  ~IPreferencesListener() = default;
};

// One client's view of the device's preferences store. Values are typed; a number answers as unsigned, as
// int, or as both, by its range. All operations may be called from several threads at once. After a failure
// the outputs are as they were.
class IPreferencesManager {
 public:
  // Each stores the key's value in `value`. Returns kNotFound or kStoreError otherwise.
  virtual Status getString(String key, OwnedText* value) = 0;
  virtual Status getUint(String key, uint32_t* value) = 0;
  virtual Status getInt(String key, int32_t* value) = 0;
  // The value is in the lowest bit.
  virtual Status getBool(String key, uint8_t* value) = 0;

  // Each replaces the key's value, whatever its type was. It is stored when the call returns kOk. Waits for
  // other writers of the store. Returns kStoreError and logs the reason if nothing was stored.
  virtual Status setString(String key, String value) = 0;
  virtual Status setUint(String key, uint32_t value) = 0;
  virtual Status setInt(String key, int32_t value) = 0;
  virtual Status setBool(String key, bool value) = 0;

  // Reports changes of `keys` to `listener`, which must outlive the manager: destroying the manager ends the
  // subscription and waits for a running call of the listener, so a listener must not do that. Returns
  // kStoreError if the store cannot be watched.
  virtual Status registerListener(IPreferencesListener* listener, Array<String> keys) = 0;

 protected:
  ~IPreferencesManager() = default;
};

}  // namespace OSSDK::Preferences::v4
