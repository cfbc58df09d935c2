#include "fixture/Process.h"

#include <filesystem>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/TempDir.h"

namespace fixture {
namespace {

namespace fs = std::filesystem;

bool becomeUser(uid_t uid) {
  return uid == getuid() || (setgroups(0, nullptr) == 0 && setgid(uid) == 0 && setuid(uid) == 0);
}

}  // namespace

uid_t serviceUid() {
  return getuid() == 0 ? 1000 : getuid();
}
uid_t applicationUid() {
  return getuid() == 0 ? 10123 : getuid();
}
uid_t reporterUid() {
  return getuid() == 0 ? 10124 : getuid();
}

void actAs(uid_t uid, const std::function<void()>& work) {
  std::thread([&] {
    // The system call changes this thread only. The library's function would change all threads.
    if (syscall(SYS_setresuid, uid, uid, uid) != 0) throw std::runtime_error("setresuid");
    work();
  }).join();
}

std::string buildDirectory() {
  return fs::read_symlink("/proc/self/exe").parent_path().string();
}

std::string staged(const std::string& program) {
  static const test::TempDir stage;
  fs::permissions(stage.path(), fs::perms(0755));
  for (const std::string& name : {std::string("libossdk.pellux.so"), program}) {
    const fs::path copy = stage.path(name);
    if (fs::exists(copy)) continue;
    fs::copy_file(buildDirectory() + "/" + name, copy);
    fs::permissions(copy, fs::perms(0755));
  }
  return stage.path(program);
}

Process::Process(std::vector<std::string> arguments, const ProcessOptions& options) {
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const pid_t parent = getpid();
  mPid = fork();
  if (mPid < 0) throw std::runtime_error("fork");
  if (mPid > 0) return;
  if (!options.output.empty()) {
    // Opened before the child becomes another user, who may not write here.
    const int output = open(options.output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (output < 0 || dup2(output, STDOUT_FILENO) < 0 || dup2(output, STDERR_FILENO) < 0) _exit(126);
  }
  if (!becomeUser(options.uid) || prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent) _exit(126);
  execv(argv[0], argv.data());
  _exit(127);
}

Process::~Process() {
  if (mStatus) return;
  kill(mPid, SIGKILL);
  waitpid(mPid, nullptr, 0);
}

void Process::signal(int number) const {
  kill(mPid, number);
}

std::optional<int> Process::wait(std::chrono::seconds atMost) {
  const auto deadline = std::chrono::steady_clock::now() + atMost;
  while (!mStatus) {
    int status = 0;
    if (waitpid(mPid, &status, WNOHANG) == mPid) mStatus = status;
    if (mStatus || std::chrono::steady_clock::now() >= deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return mStatus;
}

int Outcome::exitCode() const {
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Outcome run(const std::vector<std::string>& arguments, ProcessOptions options) {
  const test::TempDir dir;
  options.output = dir.path("output");
  Process process(arguments, options);
  Outcome outcome;
  outcome.status = process.wait().value_or(SIGKILL);
  outcome.output = test::readFile(options.output);
  return outcome;
}

}  // namespace fixture
