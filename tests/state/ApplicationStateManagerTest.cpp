#include "state/ApplicationStateManager.h"

#include <cerrno>
#include <filesystem>
#include <future>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "ScriptedStatsd.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

// A manager over a scripted statsd, with its clock and the set of processes in the test's hands.
class ApplicationStateManagerTest : public testing::Test {
 protected:
  test::ScriptedStatsd* mStatsd = new test::ScriptedStatsd([this](size_t taken) { mOnFetch(taken); });
  std::function<void(size_t)> mOnFetch = [](size_t) {};
  int64_t mNow = 1'000'000;
  std::set<pid_t> mAlive;
  ApplicationStateManager mManager{std::make_unique<BlackBox>([this] { return mNow; }),
                                   std::make_unique<StatsManager>(std::unique_ptr<LibstatsdWrapper>(mStatsd)),
                                   60, [this](pid_t pid) { return mAlive.count(pid) != 0; }};
};

TEST_F(ApplicationStateManagerTest, AnswersWithWhatStatsdHeldBeforeTheCall) {
  EXPECT_EQ(mManager.getApplicationStateForPid(7), std::nullopt);
  mStatsd->publish(7, "screen", "home", 20);
  mStatsd->publish(7, "screen", "boot", 10);
  EXPECT_THAT(*mManager.getApplicationStateForPid(7), ElementsAre(Pair("screen", "home")));
  mStatsd->publish(8, "", "", 0);
  EXPECT_THAT(mManager.getAllProcessStates(), UnorderedElementsAre(Pair(7, testing::_), Pair(8, testing::_)));
  EXPECT_THAT(mManager.getAllGlobalStates(), IsEmpty());
  mStatsd->publish({true, "telemetry", 0, "service_session_id", "s1", 1});
  EXPECT_THAT(
      mManager.getAllGlobalStates(),
      ElementsAre(Pair("telemetry", ElementsAre(Pair("service_session_id", HasSubstr(R"("v":"s1")"))))));
}

TEST_F(ApplicationStateManagerTest, ForgetsAProcessSixtySecondsAfterItWasFoundDead) {
  mAlive = {7, 8};
  mStatsd->publish(7, "k", "v", 1);
  mStatsd->publish(8, "k", "v", 1);
  mManager.updateApplicationStateManager();
  mNow += 3600;
  mManager.cleanup();
  mAlive = {8};
  mManager.cleanup();  // finds it dead now, however long ago it died
  mNow += 59;
  mManager.cleanup();
  EXPECT_NE(mManager.getApplicationStateForPid(7), std::nullopt);
  mNow += 1;
  EXPECT_NE(mManager.getApplicationStateForPid(7), std::nullopt);  // until the clean-up
  mManager.cleanup();
  EXPECT_EQ(mManager.getApplicationStateForPid(7), std::nullopt);
  EXPECT_NE(mManager.getApplicationStateForPid(8), std::nullopt);
}

TEST_F(ApplicationStateManagerTest, CleansUpWithoutFetchingAndWithoutWaitingForAFetch) {
  std::promise<void> fetching;
  std::promise<void> goOn;
  mOnFetch = [&](size_t) {
    fetching.set_value();
    goOn.get_future().wait();
  };
  std::thread query([this] { mManager.getAllProcessStates(); });
  fetching.get_future().wait();
  mManager.cleanup();  // neither waits here nor sets the promise again
  goOn.set_value();
  query.join();
}

// Statsd hands every atom out once. A query that comes while another still carries what it fetched has to
// wait for it.
TEST_F(ApplicationStateManagerTest, MissesNothingThatAnotherQueryHasFetched) {
  std::promise<void> fetching;
  std::promise<void> goOn;
  mOnFetch = [&](size_t taken) {
    if (taken == 0) return;
    fetching.set_value();
    goOn.get_future().wait();
  };
  mStatsd->publish(7, "screen", "home", 1);
  std::thread first([this] { mManager.getAllProcessStates(); });
  fetching.get_future().wait();
  auto second = std::async(std::launch::async, [this] { return mManager.getApplicationStateForPid(7); });
  EXPECT_EQ(second.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  goOn.set_value();
  const auto states = second.get();
  first.join();
  ASSERT_TRUE(states.has_value());
  EXPECT_THAT(*states, ElementsAre(Pair("screen", "home")));
}

// An older batch applied late would make time seem to have gone back and reset the global's history.
TEST_F(ApplicationStateManagerTest, AppliesBatchesInTheOrderOfTheirFetches) {
  std::atomic<int64_t> published = 0;
  std::vector<std::thread> queries;
  for (int thread = 0; thread < 4; thread++) {
    queries.emplace_back([&] {
      while (published < 2'000) {
        const int64_t before = published;
        const auto globals = mManager.getAllGlobalStates();
        if (before == 0) continue;
        const std::string text = globals.at("telemetry").at("id");
        EXPECT_GE(std::stoll(text.substr(text.find("\"v\":\"") + 5)), before) << text;
      }
    });
  }
  for (int64_t i = 1; i <= 2'000; i++) {
    mStatsd->publish({true, "telemetry", 0, "id", std::to_string(i), i});
    published = i;
    if (i % 16 == 0) std::this_thread::yield();
  }
  for (std::thread& query : queries) query.join();
}

bool cleanupThreadExists() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (test::readFile(task.path() / "comm") == "ApplicationStat\n") return true;
  }
  return false;
}

TEST_F(ApplicationStateManagerTest, HasACleanupThreadBetweenStartAndStop) {
  mManager.stopCleanupPeriodicTask();
  EXPECT_FALSE(cleanupThreadExists());
  mManager.startCleanupPeriodicTask();
  mManager.startCleanupPeriodicTask();
  EXPECT_TRUE(cleanupThreadExists());
  mManager.stopCleanupPeriodicTask();
  mManager.stopCleanupPeriodicTask();
  EXPECT_FALSE(cleanupThreadExists());
  mManager.startCleanupPeriodicTask();  // and the destructor ends it
}

TEST(DefaultApplicationStateManager, IsNotMadeWithoutAFeed) {
  test::LogCapture log;
  const test::TempDir runtime;
  const test::ScopedEnv env("TORV_RUNTIME_DIR", runtime.write("a file", "") + "/below");
  EXPECT_EQ(ApplicationStateManager::makeDefaultManager(), nullptr);
  EXPECT_EQ(log.lines().back().text, "Failed to create stats manager\n");
  EXPECT_EQ(log.lines().back().priority, ANDROID_LOG_ERROR);
  EXPECT_EQ(log.lines().back().tag, program_invocation_short_name);  // what liblog says where no tag is given
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
