#pragma once

#include <sys/types.h>

#include <initializer_list>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

inline constexpr uid_t kRoot = 0;
inline constexpr uid_t kSystem = 1000;
inline constexpr uid_t kApplication = 10123;

// Another process of the machine, killed and reaped with this object. A process must open the binder device
// for itself, so a child is always a new program: this one in another role, or the daemon.
class Child {
 public:
  // `role` and its arguments as main() takes them apart (see Roles.h).
  Child(uid_t uid, std::vector<std::string> role);
  Child(Child&& other) noexcept;
  Child& operator=(Child&&) = delete;
  ~Child();

  // Any program; its output goes to the end of `log`.
  static Child program(uid_t uid, const std::string& path, const std::string& log);

  pid_t pid() const { return mPid; }
  // Waits for the one byte that a role writes when it is where its caller wants it; false when it ended
  // first.
  bool ready();
  // Lets a role that waits for it go on.
  void release();
  void kill(int signal) const;
  // SIGSTOP, and waits until every thread has come to rest.
  void stop() const;
  // The exit code, or 128 plus the signal that ended it. Reaps the process.
  int wait();

 private:
  Child(uid_t uid, const std::vector<std::string>& command, const char* log);

  pid_t mPid = -1;
  android::base::unique_fd mToChild;
  android::base::unique_fd mFromChild;
};

// Where a role meets its parent.
void tellReady();
void awaitRelease();
