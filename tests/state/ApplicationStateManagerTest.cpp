#include "state/ApplicationStateManager.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <filesystem>
#include <future>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <signal.h>
#include <statsd/StatsEventWriter.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "stats/StatsManagerBuilder.h"
#include "support/TempDir.h"

static int gGetpgidErrno = 0;  // what getpgid() fails with; 0 lets the kernel answer

// Stands before the C library's, because no test can make a kernel without security modules refuse.
extern "C" pid_t getpgid(pid_t pid) noexcept {
  if (gGetpgidErrno == 0) return static_cast<pid_t>(syscall(SYS_getpgid, pid));
  errno = gGetpgidErrno;
  return -1;
}

namespace Torv::OS::Diagnostics {
namespace {

using testing::ElementsAre, testing::HasSubstr, testing::Pair, testing::UnorderedElementsAre;

// Forks a process that does `work` and then stops for good. It runs as `uid` if the test is root.
pid_t forkStopped(uid_t uid, const std::function<void()>& work) {
  const pid_t pid = fork();
  if (pid == 0) {
    if (getuid() == 0 && setuid(uid) != 0) _exit(1);
    work();
    while (true) raise(SIGSTOP);
  }
  int status = 0;
  waitpid(pid, &status, WUNTRACED);
  EXPECT_TRUE(WIFSTOPPED(status));
  return pid;
}

// Blocks in each fetch until the test lets it go on. Fetch number N, from 1, hands out the value "N".
class SlowStatsd : public LibstatsdWrapper {
 public:
  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    std::unique_lock lock(mMutex);
    const int fetch = ++mBegun;
    mChanged.notify_all();
    mChanged.wait(lock, [&] { return mAllowed >= fetch; });
    return std::vector<ApplicationState>{{false, "", 7, "screen", std::to_string(fetch), fetch}};
  }

  void waitForFetch(int number) {
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [&] { return mBegun >= number; });
  }

  int fetches() {
    std::unique_lock lock(mMutex);
    return mBegun;
  }

  void allowFetch(int number) {
    std::unique_lock lock(mMutex);
    mAllowed = number;
    mChanged.notify_all();
  }

 private:
  std::mutex mMutex;
  std::condition_variable mChanged;
  int mBegun = 0;
  int mAllowed = 0;
};

// Statsd hands every atom out once. So a query that comes during a fetch has to wait for the next one, and
// all that wait share it. A clean-up fetches nothing and waits for nobody.
TEST(ApplicationStateManagerTest, queriesThatComeDuringAFetchShareTheNextOne) {
  auto owned = std::make_unique<SlowStatsd>();
  SlowStatsd& statsd = *owned;
  ApplicationStateManager manager(std::make_unique<BlackBox>(),
                                  std::make_unique<StatsManager>(std::move(owned)), 60);
  const auto ask = [&] { return manager.getApplicationStateForPid(7).value().at("screen"); };
  auto first = std::async(std::launch::async, ask);
  statsd.waitForFetch(1);
  manager.cleanup();
  std::vector<std::future<std::string>> others;
  for (int i = 0; i < 15; i++) others.push_back(std::async(std::launch::async, ask));
  EXPECT_EQ(others.back().wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  statsd.allowFetch(1);
  statsd.waitForFetch(2);
  for (auto& other : others) {
    EXPECT_EQ(other.wait_for(std::chrono::milliseconds(1)), std::future_status::timeout);
  }
  statsd.allowFetch(100);
  first.get();
  for (auto& other : others) EXPECT_NE(other.get(), "1");
  EXPECT_LT(statsd.fetches(), 5) << "one and the next; a query that came late may have had one of its own";
}

// From an atom that another process writes to its socket, to the answer about that process.
TEST(ApplicationStateManagerTest, answersForAPublisherUntilItWasFoundDeadAMinuteAgo) {
  const test::TempDir runtime;
  const test::ScopedEnv env("TORV_RUNTIME_DIR", runtime.path());
  StatsManagerBuilder builder;
  builder.setConfigId(57476).addAtomId(110010).addAtomId(111983).addAllowedLogSource("AID_APP");
  std::unique_ptr<StatsManager> feed = std::move(builder).build();
  ASSERT_NE(feed, nullptr);
  std::filesystem::permissions(runtime.path(), std::filesystem::perms(0755));
  int64_t now = 1'000'000;
  ApplicationStateManager manager(std::make_unique<BlackBox>([&now] { return now; }), std::move(feed), 60);

  const pid_t publisher = forkStopped(10'000, [] {
    libstatsd::StatsEventWriter writer;
    writer.publishApplicationState(getpid(), "screen", "home");
    writer.publishApplicationState(getpid(), "screen", "settings");
    writer.publishTelemetrySession("service", "user");
  });
  const auto states = ElementsAre(Pair("screen", "settings"));
  EXPECT_THAT(manager.getAllProcessStates(), ElementsAre(Pair(publisher, states)));
  EXPECT_THAT(manager.getAllGlobalStates().at("telemetry"),
              UnorderedElementsAre(Pair("service_session_id", HasSubstr(R"("v":"service")")),
                                   Pair("user_active_session_id", HasSubstr(R"("v":"user")"))));
  manager.cleanup();
  EXPECT_TRUE(ApplicationStateManager::processExists(publisher));
  kill(publisher, SIGKILL);
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(publisher), &info, WEXITED | WNOWAIT);
  EXPECT_TRUE(ApplicationStateManager::processExists(publisher)) << "a zombie has its pid still";
  waitpid(publisher, nullptr, 0);
  for (const int64_t passed : {3600, 59, 1}) {  // the first clean-up finds it dead, however long ago it died
    now += passed;
    EXPECT_THAT(manager.getApplicationStateForPid(publisher).value(), states);
    manager.cleanup();
  }
  EXPECT_EQ(manager.getApplicationStateForPid(publisher), std::nullopt);
  EXPECT_EQ(manager.getAllGlobalStates().size(), 1U);
}

TEST(DeadCheckTest, takesPidsThatNeverWereForDeadAndThoseItMayNotLookAtForAlive) {
  errno = EPERM;  // left by an earlier call
  for (const pid_t pid : {INT_MAX, INT_MIN, -1, -getpid()}) {
    EXPECT_FALSE(ApplicationStateManager::processExists(pid)) << pid;
  }
  for (const pid_t pid : {0, 1, getpid()}) EXPECT_TRUE(ApplicationStateManager::processExists(pid)) << pid;
  for (const int error : {EPERM, EACCES, ESRCH, EINVAL}) {
    gGetpgidErrno = error;
    EXPECT_EQ(ApplicationStateManager::processExists(1), error == EPERM || error == EACCES) << error;
  }
  gGetpgidErrno = 0;
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
