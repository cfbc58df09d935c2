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

// A process that does nothing until it is killed; of another user where the test may make one.
pid_t forkIdle(uid_t uid) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  if (getuid() == 0 && setuid(uid) != 0) _exit(1);
  while (true) pause();
}

TEST(DeadCheck, TellsALivingProcessFromADeadOneWhoeverOwnsIt) {
  EXPECT_TRUE(exists(1));
  for (const uid_t uid : {getuid(), uid_t{65534}}) {
    const pid_t child = forkIdle(uid);
    EXPECT_TRUE(exists(child));
    kill(child, SIGKILL);
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
    EXPECT_TRUE(exists(child)) << "a zombie has its pid still";
    waitpid(child, nullptr, 0);
    EXPECT_FALSE(exists(child));
  }
}

TEST(DeadCheck, TakesPidsThatNeverWereForDead) {
  errno = EPERM;  // left by an earlier call
  for (const pid_t pid : {INT_MAX, INT_MIN, -1, -getpid()}) EXPECT_FALSE(exists(pid)) << pid;
  EXPECT_TRUE(exists(0));  // which stands for the asker
}

TEST(DeadCheck, TakesAProcessItMayNotLookAtForAlive) {
  for (const int error : {EPERM, EACCES, ESRCH, EINVAL}) {
    gGetpgidErrno = error;
    EXPECT_EQ(exists(getpid()), error == EPERM || error == EACCES) << error;
  }
  gGetpgidErrno = 0;
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
