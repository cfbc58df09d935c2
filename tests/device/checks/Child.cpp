#include "Child.h"

#include <sys/wait.h>

#include <cstdio>
#include <utility>

#include "Machine.h"

namespace {

sigset_t releases() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR1);
  return set;
}

std::vector<std::string> withProgram(std::vector<std::string> role) {
  role.insert(role.begin(), "/bin/device_checks");
  return role;
}

fixture::ProcessOptions as(uid_t uid, const std::string& output) {
  fixture::ProcessOptions options;
  options.uid = uid;
  options.output = output;
  return options;
}

}  // namespace

Child::Child(uid_t uid, std::vector<std::string> role)
    : mProcess(withProgram(std::move(role)), as(uid, mDir.path("output"))) {}

bool Child::ready() {
  ++mReady;
  const auto isReady = [this] { return countOf(test::readFile(mDir.path("output")), "ready") >= mReady; };
  return fixture::eventually([&] { return isReady() || !mProcess.running(); }) && isReady();
}

int Child::wait() {
  const std::optional<int> status = mProcess.wait();
  if (!status) return -1;
  return WIFEXITED(*status) ? WEXITSTATUS(*status) : 128 + WTERMSIG(*status);
}

void keepRelease() {
  const sigset_t set = releases();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void tellReady() {
  std::puts("ready");
  std::fflush(stdout);
}

void awaitRelease() {
  const sigset_t set = releases();
  int signal = 0;
  sigwait(&set, &signal);
}
