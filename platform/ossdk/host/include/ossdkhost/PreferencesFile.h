#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <android-base/result.h>
#include <android-base/unique_fd.h>
#include <json/value.h>
#include <sys/stat.h>

#include "base/Mutex.h"

namespace platform {

// The preferences of a runtime directory: <directory>/preferences.json, one JSON object of keys and values
// (strings, numbers, true and false) of at most 4 MiB. A missing or empty file holds no preferences. A file
// that is no such object is renamed to preferences.json.corrupt, which is logged, and holds none either.
// Several threads and processes may use the file at once.
class PreferencesFile {
 public:
  // The file's name, and the tag of everything that is logged about it.
  static constexpr char kName[] = "preferences.json";
  static constexpr char kLogTag[] = "OsSdkPreferences";

  // Returns the process's one object for `directory`, so that all users share what was parsed. It lives until
  // the process is gone. Thread-safe.
  static PreferencesFile& of(const std::string& directory);

  explicit PreferencesFile(const std::string& directory);

  // Returns the present contents, always an object; they are parsed again only if the file has changed.
  // Returns null if the file exists but cannot be read (it is no regular file, the process has no descriptor
  // left): that is logged once. Never waits.
  std::shared_ptr<const Json::Value> read();

  // Calls `change` with the contents, and stores what it made of them. Writers of all processes take turns by
  // a lock; readers see the old file or the new one. Returns an error that names the file if nothing was
  // stored.
  [[nodiscard]] android::base::Result<void> update(const std::function<void(Json::Value&)>& change);

  const std::string& directory() const { return mDirectory; }

 private:
  // Device, inode, size, and the times of the last changes in nanoseconds: if these are the same, so are the
  // contents, unless the last change was just now. No file has all zeros.
  using Identity = std::array<int64_t, 5>;

  // What the file held. A missing file, and a damaged one, hold no values.
  struct Reading {
    std::shared_ptr<const Json::Value> values = std::make_shared<const Json::Value>(Json::objectValue);
    std::string damage;  // what is wrong with a damaged file, else empty
    Identity identity{};
    bool isSettled = false;  // the last change was not just now
  };

  static Identity identityOf(const struct stat& status);
  // Returns an error if the file exists but cannot be read. A missing or damaged file is no error.
  android::base::Result<Reading> readFile() const;
  // Renames the file if it still is the damaged one. `lock` is the file's, or says why it could not be taken.
  void setAside(const Reading& damaged, const android::base::Result<android::base::unique_fd>& lock);
  void complain(const std::string& problem);

  const std::string mDirectory;
  const std::string mPath;
  const std::string mLockPath;
  std::atomic<bool> mHasComplained{false};  // since the file was last in order
  Torv::Base::Mutex mMutex;
  Reading mCached GUARDED_BY(mMutex);
};

}  // namespace platform
