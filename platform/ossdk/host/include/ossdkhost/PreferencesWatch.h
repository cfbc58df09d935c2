#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>
#include <ossdk/Preferences.h>

#include "ossdkhost/PreferencesFile.h"

namespace platform {

// Watches a preferences file on a thread of its own, from construction to destruction, and tells listeners
// which of their keys have changed. The thread sleeps in the kernel until the file's directory changes.
class PreferencesWatch {
 public:
  using IPreferencesListener = OSSDK::Preferences::v4::IPreferencesListener;

  // Where it cannot watch, error() says why and no thread runs.
  PreferencesWatch(const std::string& directory, std::shared_ptr<PreferencesFile> file);
  // Waits for a listener that is being called; so not from within one.
  ~PreferencesWatch();
  PreferencesWatch(const PreferencesWatch&) = delete;
  PreferencesWatch& operator=(const PreferencesWatch&) = delete;

  const std::optional<std::string>& error() const { return mError; }

  // `listener` is called until destruction, first with onConnected(). A change that is made after add() has
  // returned is reported.
  void add(IPreferencesListener* listener, std::vector<std::string> keys);

 private:
  struct Registration {
    IPreferencesListener* listener;
    std::vector<std::string> keys;
    bool connected = false;
  };

  // What has happened since the last look.
  struct Events {
    bool touched = false;  // the file may have changed
    bool gone = false;     // the directory is gone, and the watch with it
  };

  void run();
  Events takeEvents();
  void tellConnected();
  void tellChanges();
  void tellDisconnected();

  const std::shared_ptr<PreferencesFile> mFile;
  std::optional<std::string> mError;
  android::base::unique_fd mInotify;
  android::base::unique_fd mWakeUp;  // an eventfd: a listener was added, or the end has come
  std::mutex mMutex;
  std::vector<Registration> mRegistrations;  // guarded by mMutex
  bool mStopping = false;                    // guarded by mMutex
  std::shared_ptr<const Json::Value> mSeen;  // the thread's own: what was reported last
  std::thread mThread;
};

}  // namespace platform
