#include "state/ApplicationStateManager.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <future>
#include <semaphore>

#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

static int gGetpgidErrno = 0;  // what getpgid() fails with; 0 lets the kernel answer

// Stands before the C library's, because no test can make a kernel without security modules refuse.
extern "C" pid_t getpgid(pid_t pid) noexcept {
  if (gGetpgidErrno == 0) return static_cast<pid_t>(syscall(SYS_getpgid, pid));
  errno = gGetpgidErrno;
  return -1;
}

namespace Torv::OS::Diagnostics {
namespace {

using testing::Pair;
using States = std::vector<ApplicationState>;

// Hands out what a function of the test returns.
class FakeStatsd : public LibstatsdWrapper {
 public:
  explicit FakeStatsd(std::function<States()> fetch) : mFetch(std::move(fetch)) {}
  std::variant<States, libstatsd::Error> fetchReports() override { return mFetch(); }

 private:
  const std::function<States()> mFetch;
};

std::unique_ptr<StatsManager> feedOf(std::function<States()> fetch) {
  return std::make_unique<StatsManager>(std::make_unique<FakeStatsd>(std::move(fetch)));
}

// Statsd hands every atom out once. So a query that comes during a fetch has to wait for the next one, and
// all that wait share it. A clean-up fetches nothing and waits for nobody.
TEST(ApplicationStateManagerTest, queriesThatComeDuringAFetchShareTheNextOne) {
  std::atomic<int> begun = 0;
  std::counting_semaphore<> allowed{0};
  ApplicationStateManager manager(std::make_unique<BlackBox>(), feedOf([&] {
                                    const int fetch = ++begun;
                                    begun.notify_all();
                                    allowed.acquire();
                                    return States{{false, "", 7, "screen", std::to_string(fetch), fetch}};
                                  }),
                                  60);
  const auto ask = [&] { return manager.getApplicationStateForPid(7).value().at("screen"); };
  auto first = std::async(std::launch::async, ask);
  begun.wait(0);
  manager.cleanup();
  std::vector<std::future<std::string>> others;
  for (int i = 0; i < 15; i++) others.push_back(std::async(std::launch::async, ask));
  EXPECT_EQ(others.back().wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  allowed.release();
  begun.wait(1);
  for (auto& other : others) {
    EXPECT_EQ(other.wait_for(std::chrono::milliseconds(1)), std::future_status::timeout);
  }
  allowed.release(100);
  first.get();
  for (auto& other : others) EXPECT_NE(other.get(), "1");
  EXPECT_LT(begun, 5) << "one and the next; a query that came late may have had one of its own";
}

TEST(ApplicationStateManagerTest, answersAboutAProcessUntilItWasFoundDeadAMinuteAgo) {
  States pending{{false, "", 7, "screen", "home", 1}, {false, "", 7, "screen", "settings", 2}};
  int64_t now = 1'000'000;
  bool isAlive = true;
  ApplicationStateManager manager(std::make_unique<BlackBox>([&] { return now; }),
                                  feedOf([&] { return std::exchange(pending, {}); }), 60,
                                  [&](pid_t pid) { return pid != 7 || isAlive; });
  const auto states = testing::ElementsAre(Pair("screen", "settings"));
  EXPECT_THAT(manager.getAllProcessStates(), testing::ElementsAre(Pair(7, states)));
  manager.cleanup();
  isAlive = false;
  for (const int64_t passed : {3600, 59, 1}) {  // the first clean-up finds it dead, however long ago it died
    now += passed;
    EXPECT_THAT(manager.getApplicationStateForPid(7).value(), states);
    manager.cleanup();
  }
  EXPECT_EQ(manager.getApplicationStateForPid(7), std::nullopt);
}

TEST(DeadCheckTest, takesPidsThatNeverWereForDeadAndZombiesAndThoseItMayNotLookAtForAlive) {
  const pid_t zombie = fork();
  if (zombie == 0) _exit(0);
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(zombie), &info, WEXITED | WNOWAIT);
  errno = EPERM;  // left by an earlier call
  for (const pid_t pid : {INT_MAX, INT_MIN, -1, -getpid(), 0, 1, getpid(), zombie}) {
    EXPECT_EQ(ApplicationStateManager::processExists(pid), pid >= 0 && pid < INT_MAX) << pid;
  }
  waitpid(zombie, nullptr, 0);
  for (const int error : {EPERM, EACCES, ESRCH, EINVAL}) {
    gGetpgidErrno = error;
    EXPECT_EQ(ApplicationStateManager::processExists(1), error == EPERM || error == EACCES) << error;
  }
  gGetpgidErrno = 0;
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
