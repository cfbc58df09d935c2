#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <android-base/result.h>
#include <json/value.h>
#include <sys/stat.h>

#include "base/Mutex.h"
#include "ossdkhost/RepeatedMessage.h"

namespace platform {

// The preferences of a runtime directory: <directory>/preferences.json, one JSON object of keys and values
// (strings, numbers, true and false) of at most 4 MiB. A missing or empty file holds no preferences. A file
// that is no such object is renamed to preferences.json.corrupt, which is logged, and holds none either.
// Several threads and processes may use the file at once.
class PreferencesFile {
 public:
  static constexpr char kName[] = "preferences.json";
  static constexpr char kLogTag[] = "OsSdkPreferences";

  // Returns the process's one object for `directory`, so that all users share what was parsed. Never null.
  static std::shared_ptr<PreferencesFile> of(const std::string& directory);

  explicit PreferencesFile(const std::string& directory);

  // Returns the present contents, always an object; they are parsed again only if the file has changed.
  // Returns null if the file exists but cannot be read (it is no regular file, the process has no descriptor
  // left): that is logged once. Never waits.
  std::shared_ptr<const Json::Value> read();

  // Calls `change` with the contents, and stores what it made of them. Writers of all processes take turns by
  // a lock; readers see the old file or the new one. Returns an error that names the file if nothing was
  // stored.
  [[nodiscard]] android::base::Result<void> update(const std::function<void(Json::Value&)>& change);

 private:
  // Device, inode, size, and the times of the last changes in nanoseconds: if these are the same, so are the
  // contents, unless the last change was just now.
  using Identity = std::array<int64_t, 5>;
  struct Reading;

  static Identity identityOf(const struct stat& status);
  android::base::Result<Reading> readFile() const;
  void setAside(const Reading& damaged);
  void setAsideLocked(const Reading& damaged);
  void complain(const std::string& message);

  const std::string mPath;
  const std::string mLockPath;
  RepeatedMessage mComplaint;
  Torv::Base::Mutex mMutex;
  Identity mCachedIdentity GUARDED_BY(mMutex){};
  std::shared_ptr<const Json::Value> mCached GUARDED_BY(mMutex);  // null if nothing is cached
};

}  // namespace platform
