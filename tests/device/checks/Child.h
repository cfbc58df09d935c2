#pragma once

#include <signal.h>

#include <string>
#include <vector>

#include "fixture/Process.h"
#include "support/TempDir.h"

inline constexpr uid_t kRoot = 0;
inline constexpr uid_t kSystem = 1000;
inline constexpr uid_t kApplication = 10123;

// This program as another process of the machine, killed and reaped with this object. A process must open the
// binder device for itself, so it is always started anew.
class Child {
 public:
  // `role` and its arguments as main() takes them apart (see Roles.h).
  Child(uid_t uid, std::vector<std::string> role);

  pid_t pid() const { return mProcess.pid(); }
  // Waits until the role says once more that it is where its caller wants it; false when it ended first.
  bool ready();
  // Lets a role that waits for it go on.
  void release() const { mProcess.signal(SIGUSR1); }
  void kill() const { mProcess.signal(SIGKILL); }
  // The exit code, or 128 plus the signal that ended it; -1 where nothing has ended it within a minute.
  int wait();

 private:
  const test::TempDir mDir;
  fixture::Process mProcess;
  size_t mReady = 0;
};

// Where a role meets its parent. Before its first thread it keeps the release for later.
void keepRelease();
void tellReady();
void awaitRelease();
