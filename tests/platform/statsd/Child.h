#pragma once

#include <cstdlib>
#include <functional>
#include <string>

#include <grp.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

// A process of its own that runs `body`; its exit status is what body returns. Killed at the latest when the
// object goes.
class Child {
 public:
  explicit Child(const std::function<int()>& body) : mPid(fork()) {
    if (mPid == 0) _exit(body());
  }
  ~Child() { kill(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // The exit status, or -1 where the process did not exit by itself.
  int wait() {
    if (mPid <= 0) return -1;
    int status = 0;
    const bool exited = waitpid(mPid, &status, 0) == mPid && WIFEXITED(status);
    mPid = -1;
    return exited ? WEXITSTATUS(status) : -1;
  }

  void kill() {
    if (mPid > 0) ::kill(mPid, SIGKILL);
    wait();
  }

 private:
  pid_t mPid;
};

// For a child of root: become that user. False where the process has no right to.
inline bool becomeUid(uid_t uid) {
  return getuid() == uid || (setgroups(0, nullptr) == 0 && setgid(uid) == 0 && setuid(uid) == 0);
}

}  // namespace test
