#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <android-base/result.h>
#include <json/value.h>
#include <sys/stat.h>

#include "ossdkhost/RepeatedMessage.h"

namespace platform {

// The preferences of a runtime directory: <directory>/preferences.json, one object of keys and values
// (strings, numbers, true and false). A missing or empty file holds no preferences. One that is not such an
// object is moved to preferences.json.corrupt and logged, and holds none either. All operations may be called
// from several threads and processes at once.
class PreferencesFile {
 public:
  static constexpr char kName[] = "preferences.json";
  static constexpr char kLogTag[] = "OsSdkPreferences";

  // The one object for `directory` in this process, so that all who look up share what was parsed.
  static std::shared_ptr<PreferencesFile> of(const std::string& directory);

  explicit PreferencesFile(const std::string& directory);

  // The file as it is now, always an object; it is parsed again only when it has changed. Null where the file
  // is there and cannot be read, which is logged once.
  std::shared_ptr<const Json::Value> read();

  // Changes the file through `change`, which is given the object to alter, under a lock that all writers
  // take; readers see the old file or the new one. Returns an error that names the file if nothing was
  // stored.
  [[nodiscard]] android::base::Result<void> update(const std::function<void(Json::Value&)>& change);

 private:
  struct Reading;
  struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    timespec modified{};
    timespec changed{};

    static Identity of(const struct stat& status);
    bool operator==(const Identity& other) const;
  };
  struct Cached {
    Identity identity;
    std::shared_ptr<const Json::Value> values;  // null while nothing is cached
  };

  Reading readFile() const;
  void setAside(const Reading& damaged);
  void setAsideLocked(const Reading& damaged);
  void complain(const std::string& message);

  const std::string mPath;
  const std::string mLockPath;
  RepeatedMessage mComplaint;
  std::mutex mMutex;
  Cached mCached;  // guarded by mMutex
};

}  // namespace platform
