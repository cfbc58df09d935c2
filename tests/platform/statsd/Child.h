#pragma once

#include <cstdlib>
#include <functional>
#include <string>

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

// A process of its own that runs `body` once it is started; its exit status is what body returns. Killed at
// the latest when the object goes. To be made before any thread of the test is at work: a lock of the
// allocator that such a thread holds in that moment is held in the child for ever.
class Child {
 public:
  explicit Child(const std::function<int()>& body) {
    int gate[2];
    if (pipe2(gate, O_CLOEXEC) != 0) abort();
    mPid = fork();
    if (mPid == 0) {
      char go = 0;
      close(gate[1]);
      _exit(read(gate[0], &go, 1) == 1 ? body() : EXIT_FAILURE);
    }
    close(gate[0]);
    mGate = gate[1];
  }
  ~Child() {
    kill();
    close(mGate);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void start() {
    if (write(mGate, "", 1) != 1) abort();
  }

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
  pid_t mPid = -1;
  int mGate = -1;
};

// For a child of root: become that user. False where the process has no right to.
inline bool becomeUid(uid_t uid) {
  return getuid() == uid || (setgroups(0, nullptr) == 0 && setgid(uid) == 0 && setuid(uid) == 0);
}

}  // namespace test
