#include "state/ApplicationStateManager.h"

#include <cerrno>
#include <filesystem>
#include <future>
#include <mutex>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

// A statsd that holds what the test has published.
class ScriptedStatsd : public LibstatsdWrapper {
 public:
  void publish(ApplicationState state) {
    std::lock_guard lock(mMutex);
    mHeld.push_back(std::move(state));
  }

  // Called by each fetch with the number of states that it has taken, before it returns them.
  std::function<void(size_t taken)> onFetch = [](size_t) {};

  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    std::vector<ApplicationState> taken;
    {
      std::lock_guard lock(mMutex);
      taken.swap(mHeld);
    }
    onFetch(taken.size());
    return taken;
  }

 private:
  std::mutex mMutex;
  std::vector<ApplicationState> mHeld;
};

// With the clock and the set of processes in the test's hands.
class ApplicationStateManagerTest : public testing::Test {
 protected:
  std::unique_ptr<ScriptedStatsd> mOwned = std::make_unique<ScriptedStatsd>();
  ScriptedStatsd& mStatsd = *mOwned;
  int64_t mNow = 1'000'000;
  std::set<pid_t> mAlive;
  ApplicationStateManager mManager{std::make_unique<BlackBox>([this] { return mNow; }),
                                   std::make_unique<StatsManager>(std::move(mOwned)), 60,
                                   [this](pid_t pid) { return mAlive.count(pid) != 0; }};
};

TEST_F(ApplicationStateManagerTest, AnswersWithWhatStatsdHeldBeforeTheCall) {
  EXPECT_EQ(mManager.getApplicationStateForPid(7), std::nullopt);
  mStatsd.publish({false, "", 7, "screen", "home", 20});
  mStatsd.publish({false, "", 7, "screen", "boot", 10});
  EXPECT_THAT(*mManager.getApplicationStateForPid(7), ElementsAre(Pair("screen", "home")));
  mStatsd.publish({false, "", 8, "", "", 0});
  EXPECT_EQ(mManager.getAllProcessStates().size(), 2U);
  mStatsd.publish({true, "telemetry", 0, "id", "s1", 1});
  EXPECT_THAT(mManager.getAllGlobalStates(),
              ElementsAre(Pair("telemetry", ElementsAre(Pair("id", HasSubstr(R"("v":"s1")"))))));
}

TEST_F(ApplicationStateManagerTest, ForgetsAProcessSixtySecondsAfterItWasFoundDead) {
  mAlive = {7, 8};
  mStatsd.publish({false, "", 7, "k", "v", 1});
  mStatsd.publish({false, "", 8, "k", "v", 1});
  mManager.updateApplicationStateManager();
  mManager.cleanup();
  mAlive = {8};
  mNow += 3600;
  mManager.cleanup();  // finds it dead now, however long ago it died
  mNow += 59;
  mManager.cleanup();
  mNow += 1;
  EXPECT_NE(mManager.getApplicationStateForPid(7), std::nullopt);  // until the clean-up
  mManager.cleanup();
  EXPECT_EQ(mManager.getApplicationStateForPid(7), std::nullopt);
  EXPECT_NE(mManager.getApplicationStateForPid(8), std::nullopt);
}

// Statsd hands every atom out once: a query that comes while another still carries what it fetched has to
// wait for it, while a clean-up, which fetches nothing, has not.
TEST_F(ApplicationStateManagerTest, MissesNothingThatAnotherQueryHasFetched) {
  std::promise<void> fetching;
  std::promise<void> goOn;
  mStatsd.onFetch = [&](size_t taken) {
    if (taken == 0) return;
    fetching.set_value();
    goOn.get_future().wait();
  };
  mAlive = {7};
  mStatsd.publish({false, "", 7, "screen", "home", 1});
  std::thread first([this] { mManager.getAllProcessStates(); });
  fetching.get_future().wait();
  mManager.cleanup();
  auto second = std::async(std::launch::async, [this] { return mManager.getApplicationStateForPid(7); });
  EXPECT_EQ(second.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  goOn.set_value();
  EXPECT_THAT(second.get().value(), ElementsAre(Pair("screen", "home")));
  first.join();
}

TEST_F(ApplicationStateManagerTest, HasACleanupThreadBetweenStartAndStop) {
  const auto threads = [] {
    size_t named = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
      if (test::readFile(task.path() / "comm") == "ApplicationStat\n") named++;
    }
    return named;
  };
  for (int round = 0; round < 2; round++) {
    mManager.startCleanupPeriodicTask();
    mManager.startCleanupPeriodicTask();
    EXPECT_EQ(threads(), 1U);
    mManager.stopCleanupPeriodicTask();
    mManager.stopCleanupPeriodicTask();
    EXPECT_EQ(threads(), 0U);
  }
  mManager.startCleanupPeriodicTask();  // and the destructor ends it
}

TEST(DefaultApplicationStateManager, IsNotMadeWithoutAFeed) {
  test::LogCapture log;
  const test::TempDir runtime;
  const test::ScopedEnv env("TORV_RUNTIME_DIR", runtime.write("a file", "") + "/below");
  EXPECT_EQ(ApplicationStateManager::makeDefaultManager(), nullptr);
  EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, program_invocation_short_name, "Failed to create stats manager\n"));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
