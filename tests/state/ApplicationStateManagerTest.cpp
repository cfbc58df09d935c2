#include "state/ApplicationStateManager.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <future>
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

// A process that does this, of another user where the test may make one, and has then stopped for good.
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

// The first fetch hands out an atom, but not before it may; the next have nothing.
struct SlowStatsd : LibstatsdWrapper {
  std::promise<void> fetching, goOn;
  std::atomic<int> fetches = 0;

  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    if (fetches++ > 0) return {};
    fetching.set_value();
    goOn.get_future().wait();
    return std::vector<ApplicationState>{{false, "", 7, "screen", "home", 1}};
  }
};

// Statsd hands every atom out once: a query that comes while another still carries what it fetched has to
// wait for it, while a clean-up, which fetches nothing, has not.
TEST(ApplicationStateManager, MissesNothingThatAnotherQueryHasFetched) {
  auto owned = std::make_unique<SlowStatsd>();
  SlowStatsd& statsd = *owned;
  ApplicationStateManager manager(std::make_unique<BlackBox>(),
                                  std::make_unique<StatsManager>(std::move(owned)), 60);
  std::thread first([&] { manager.getAllGlobalStates(); });
  statsd.fetching.get_future().wait();
  manager.cleanup();
  auto second = std::async(std::launch::async, [&] { return manager.getApplicationStateForPid(7); });
  EXPECT_EQ(second.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  statsd.goOn.set_value();
  EXPECT_THAT(second.get().value(), ElementsAre(Pair("screen", "home")));
  first.join();
}

// From an atom that another process writes to its socket, to the answer about that process.
TEST(ApplicationStateManager, AnswersForAPublisherUntilItWasFoundDeadAMinuteAgo) {
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

TEST(DeadCheck, TakesPidsThatNeverWereForDeadAndThoseItMayNotLookAtForAlive) {
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
