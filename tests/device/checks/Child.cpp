#include "Child.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

[[noreturn]] void fail(const char* what) {
  perror(what);
  abort();
}

struct Pipe {
  android::base::unique_fd read, write;

  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) fail("pipe2");
    read.reset(ends[0]);
    write.reset(ends[1]);
  }
};

[[noreturn]] void become(uid_t uid, const std::vector<std::string>& command) {
  if (setgroups(0, nullptr) != 0 || setresgid(uid, uid, uid) != 0 || setresuid(uid, uid, uid) != 0) {
    fail("setresuid");
  }
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  fail(arguments[0]);
}

std::vector<std::string> withProgram(std::vector<std::string> role) {
  role.insert(role.begin(), "/bin/device_checks");
  return role;
}

}  // namespace

Child::Child(uid_t uid, std::vector<std::string> role) : Child(uid, withProgram(std::move(role)), nullptr) {}

Child Child::program(uid_t uid, const std::string& path, const std::string& log) {
  return Child(uid, {path}, log.c_str());
}

Child::Child(uid_t uid, const std::vector<std::string>& command, const char* log) {
  Pipe to, from;
  mPid = fork();
  if (mPid < 0) fail("fork");
  if (mPid == 0) {
    dup2(to.read, STDIN_FILENO);
    if (log == nullptr) {
      dup2(from.write, STDOUT_FILENO);
    } else {
      const int file = open(log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
      dup2(file, STDOUT_FILENO);
      dup2(file, STDERR_FILENO);
    }
    become(uid, command);
  }
  mToChild = std::move(to.write);
  mFromChild = std::move(from.read);
}

Child::Child(Child&& other) noexcept
    : mPid(std::exchange(other.mPid, -1)),
      mToChild(std::move(other.mToChild)),
      mFromChild(std::move(other.mFromChild)) {}

Child::~Child() {
  if (mPid < 0) return;
  kill(SIGKILL);
  wait();
}

bool Child::ready() {
  char byte;
  return TEMP_FAILURE_RETRY(read(mFromChild, &byte, 1)) == 1;
}

void Child::release() {
  if (write(mToChild, "", 1) != 1) fail("release");
}

void Child::kill(int signal) const {
  if (mPid > 0) ::kill(mPid, signal);
}

void Child::stop() const {
  kill(SIGSTOP);
  siginfo_t info;
  if (TEMP_FAILURE_RETRY(waitid(P_PID, mPid, &info, WSTOPPED)) != 0) fail("waitid");
}

int Child::wait() {
  int status = 0;
  if (TEMP_FAILURE_RETRY(waitpid(std::exchange(mPid, -1), &status, 0)) < 0) fail("waitpid");
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void tellReady() {
  if (write(STDOUT_FILENO, "", 1) != 1) fail("tellReady");
}

void awaitRelease() {
  char byte;
  if (read(STDIN_FILENO, &byte, 1) != 1) exit(EXIT_FAILURE);  // the parent is gone
}
