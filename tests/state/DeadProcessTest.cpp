// The dead check against real processes.
#include <cerrno>
#include <climits>

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "state/ApplicationStateManager.h"

namespace {

int gGetpgidErrno = 0;  // what getpgid() fails with; 0 lets the kernel answer

}  // namespace

// Stands before the C library's, because no test can make a kernel without security modules refuse.
extern "C" pid_t getpgid(pid_t pid) noexcept {
  if (gGetpgidErrno == 0) return static_cast<pid_t>(syscall(SYS_getpgid, pid));
  errno = gGetpgidErrno;
  return -1;
}

namespace Torv::OS::Diagnostics {
namespace {

bool exists(pid_t pid) {
  return ApplicationStateManager::processExists(pid);
}

// A process that does nothing until it is killed.
class Child {
 public:
  explicit Child(uid_t uid = getuid()) {
    mPid = fork();
    if (mPid != 0) return;
    if (uid != getuid() && setuid(uid) != 0) _exit(1);
    while (true) pause();
  }
  ~Child() {
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
  }
  // Kills it and leaves it unreaped.
  void becomeZombie() const {
    kill(mPid, SIGKILL);
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(mPid), &info, WEXITED | WNOWAIT);
  }
  void reap() const { waitpid(mPid, nullptr, 0); }
  pid_t pid() const { return mPid; }

 private:
  pid_t mPid;
};

TEST(DeadCheck, TellsALivingChildFromADeadOne) {
  const Child child;
  EXPECT_TRUE(exists(child.pid()));
  child.becomeZombie();
  EXPECT_TRUE(exists(child.pid())) << "a zombie has its pid still";
  child.reap();
  EXPECT_FALSE(exists(child.pid()));
}

TEST(DeadCheck, TakesAProcessOfAnotherUserForAlive) {
  EXPECT_TRUE(exists(1));
  if (getuid() != 0) return;
  const Child child(65534);
  EXPECT_TRUE(exists(child.pid()));
}

TEST(DeadCheck, TakesPidsThatNeverWereForDead) {
  for (const pid_t pid : {INT_MAX, INT_MIN, -1, -getpid()}) EXPECT_FALSE(exists(pid)) << pid;
  EXPECT_TRUE(exists(0));  // which stands for the asker
}

TEST(DeadCheck, TakesAProcessItMayNotLookAtForAlive) {
  for (const int error : {EPERM, EACCES, ESRCH, EINVAL}) {
    gGetpgidErrno = error;
    EXPECT_EQ(exists(getpid()), error == EPERM || error == EACCES) << error;
  }
  gGetpgidErrno = 0;
  errno = EPERM;  // left by an earlier call
  EXPECT_FALSE(exists(INT_MAX));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
