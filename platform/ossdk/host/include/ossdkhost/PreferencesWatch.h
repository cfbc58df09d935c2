#pragma once

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <android-base/result.h>
#include <android-base/unique_fd.h>
#include <ossdk/Preferences.h>

#include "base/Mutex.h"
#include "ossdkhost/PreferencesFile.h"

namespace platform {

// Watches a preferences file on a thread of its own, and tells listeners which of their keys have changed.
// The thread sleeps in the kernel until the file's directory changes.
class PreferencesWatch {
 public:
  using IPreferencesListener = OSSDK::Preferences::v4::IPreferencesListener;

  // Starts to watch the file, which is in `directory`. Returns an error that names the directory if the
  // kernel cannot watch it.
  [[nodiscard]] static android::base::Result<std::unique_ptr<PreferencesWatch>> start(
      const std::string& directory, std::shared_ptr<PreferencesFile> file);

  // Waits for a listener that is being called, so a listener must not destroy the watch.
  ~PreferencesWatch();
  PreferencesWatch(const PreferencesWatch&) = delete;
  PreferencesWatch& operator=(const PreferencesWatch&) = delete;

  // Calls `listener` on the watch's thread until destruction, first its onConnected(). Reports every change
  // that is made after add() has returned. The caller keeps the listener alive. Thread-safe.
  void add(IPreferencesListener* listener, std::vector<std::string> keys);

 private:
  struct Registration {
    IPreferencesListener* listener;
    std::vector<std::string> keys;
    bool connected = false;
  };

  // What has happened since the last call of takeEvents().
  struct Events {
    bool touched = false;  // the file may have changed
    bool gone = false;     // the directory is gone, and the watch with it
  };

  PreferencesWatch(std::shared_ptr<PreferencesFile> file, android::base::unique_fd inotify,
                   android::base::unique_fd wakeUp);

  void run();
  std::vector<Registration> registrations();
  Events takeEvents();
  void tellConnected();
  void tellChanges();
  void tellDisconnected();

  const std::shared_ptr<PreferencesFile> mFile;
  const android::base::unique_fd mInotify;
  const android::base::unique_fd mWakeUp;  // an eventfd: a listener was added, or the thread must end
  Torv::Base::Mutex mMutex;
  std::vector<Registration> mRegistrations GUARDED_BY(mMutex);
  bool mStopping GUARDED_BY(mMutex) = false;
  std::shared_ptr<const Json::Value> mSeen;  // used by the thread only: what was reported last
  std::thread mThread;
};

}  // namespace platform
