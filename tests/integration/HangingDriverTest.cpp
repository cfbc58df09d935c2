// A driver that hangs in a read, played on the real service by a thread of it that is stopped in pread().

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

namespace {

using fixture::Daemon;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

pid_t threadOf(pid_t process, const std::string& name) {
  for (const auto& thread :
       std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    if (test::readFile(thread.path() / "comm") == name + "\n") return std::stoi(thread.path().filename());
  }
  throw std::runtime_error("no thread " + name);
}

// Stops a thread at the entry of its next pread(). Returns false if the tester may not.
bool hangInRead(pid_t thread) {
  if (ptrace(PTRACE_SEIZE, thread, nullptr, PTRACE_O_TRACESYSGOOD) != 0) return false;
  ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
  for (int status = 0;;) {
    if (waitpid(thread, &status, __WALL) != thread || !WIFSTOPPED(status)) {
      throw std::runtime_error("the service has ended");
    }
    __ptrace_syscall_info call{};
    ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(call), &call);
    if (call.op == PTRACE_SYSCALL_INFO_ENTRY && call.entry.nr == SYS_pread64) return true;
    ptrace(PTRACE_SYSCALL, thread, nullptr, nullptr);
  }
}

// How many histories a system context has.
long histories() {
  const Json::Value::Members keys = Daemon::askContext()["SystemContextData"].getMemberNames();
  return std::count_if(keys.begin(), keys.end(), [](const auto& key) { return key.ends_with("_history"); });
}

template <typename Call>
milliseconds timeOf(Call call) {
  const auto start = steady_clock::now();
  call();
  return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
}

TEST(HangingDriverTest, takesTheHistoriesAndNothingElse) {
  Daemon daemon;
  daemon.start();
  const long usual = histories();
  ASSERT_GT(usual, 0);
  const pid_t poller = threadOf(daemon.process().pid(), "SystemStateColl");
  if (!hangInRead(poller)) GTEST_SKIP() << "the tester may not stop a thread of the service";
  std::vector<std::future<milliseconds>> callers;
  for (int i = 0; i < 20; ++i) {
    callers.push_back(std::async(std::launch::async, [] {
      return timeOf([] { fixture::actAs(fixture::applicationUid(), [] { EXPECT_EQ(histories(), 0); }); });
    }));
  }
  for (int i = 0; i < 100; ++i) {
    EXPECT_LT(timeOf(&Daemon::askAll), milliseconds(1500)) << "transaction 2 waits for the driver";
    std::this_thread::sleep_for(milliseconds(20));
  }
  int patient = 0;
  for (auto& caller : callers) {
    const milliseconds time = caller.get();
    EXPECT_LT(time, milliseconds(5000));
    if (time > milliseconds(1700)) ++patient;
  }
  EXPECT_LE(patient, 2);
  ptrace(PTRACE_DETACH, poller, nullptr, nullptr);
  EXPECT_TRUE(fixture::eventually([usual] { return histories() == usual; }));
  EXPECT_TRUE(daemon.logs(" system contexts went out without histories")) << daemon.log();
}

}  // namespace
