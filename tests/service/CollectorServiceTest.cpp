#include <string>
#include <utility>
#include <vector>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Recording.h"
#include "service/DiagnosticsCollectorService.h"
#include "service/DiagnosticsCollectorServiceHandler.h"
#include "support/LogCapture.h"

namespace Torv::OS::Diagnostics {
namespace {

using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using Telemetry::EventFlow;
using Telemetry::EventName;
using Telemetry::EventType;
using test::Event;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kTag[] = "DiagnosticsCollectorService";
constexpr char kNoManager[] = "Application state manager was not properly initialized.";
constexpr char kNoBundle[] = "Invalid persistable bundle was provided to the API.";

// statsd as a list that a test fills.
class FakeStatsd : public LibstatsdWrapper {
 public:
  explicit FakeStatsd(std::vector<ApplicationState>& pending) : mPending(pending) {}
  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    return std::exchange(mPending, {});
  }

 private:
  std::vector<ApplicationState>& mPending;
};

class FakeContext : public SystemContextManager {
 public:
  explicit FakeContext(std::vector<std::string>& calls)
      : SystemContextManager(nullptr, nullptr), mCalls(calls) {}
  std::unordered_map<std::string, std::string> getSystemContext() override { return {{"build_tags", "dev"}}; }
  void startSystemStateCollectorThread() override { mCalls.push_back("start"); }
  void stopSystemStateCollectorThread() override { mCalls.push_back("stop"); }

 private:
  std::vector<std::string>& mCalls;
};

class CollectorServiceTest : public testing::Test {
 protected:
  using Handler = test::Recording<DiagnosticsCollectorServiceHandler>;

  std::unique_ptr<ApplicationStateManager> stateManager() {
    return std::make_unique<ApplicationStateManager>(
        std::make_unique<BlackBox>(),
        std::make_unique<StatsManager>(std::make_unique<FakeStatsd>(pendingAtoms)), 60,
        [](pid_t) { return true; });
  }

  void publish(int pid, const std::string& key, const std::string& value) {
    pendingAtoms.push_back({false, "", pid, key, value, ++timestamp});
  }

  // The exception with which both requests about application states answer, and no reply.
  void expectNullPointer(DiagnosticsCollectorServiceHandler& handler, PersistableBundle* out) {
    EXPECT_EQ(handler.getApplicationStateDataForProcess(7, out).exceptionCode(), Status::EX_NULL_POINTER);
    EXPECT_EQ(handler.getAllAvailableApplicationStateData(out).exceptionCode(), Status::EX_NULL_POINTER);
  }

  static std::vector<Event> refusals(const char* reason) {
    return {{EventName::GetForProcessStart, EventType::Start, EventFlow::Collector, 7},
            {EventName::GetForProcessError, EventType::Error, EventFlow::Collector, 7, reason},
            {EventName::GetAllStart, EventType::Start, EventFlow::Collector},
            {EventName::GetAllError, EventType::Error, EventFlow::Collector, std::nullopt, reason}};
  }

  test::LogCapture log;
  int64_t timestamp = 0;
  std::vector<ApplicationState> pendingAtoms;
  std::vector<std::string> contextCalls;
  std::shared_ptr<Handler> handler =
      std::make_shared<Handler>(stateManager(), std::make_unique<FakeContext>(contextCalls));
};

TEST_F(CollectorServiceTest, AnswersWithWhatWasPublishedAndReportsIt) {
  publish(7, "screen", "old");
  publish(7, "screen", "new");
  publish(8, "screen", "other");
  const sp<DiagnosticsCollectorService> service = new DiagnosticsCollectorService(handler);

  PersistableBundle one;
  ASSERT_TRUE(service->getApplicationStateDataForProcess(7, String16("ignored"), &one).isOk());
  PersistableBundle states;
  states.putString(String16("screen"), String16("new"));
  PersistableBundle expected;
  expected.putInt(String16("processId"), 7);
  expected.putPersistableBundle(String16("ApplicationStateData"), states);
  EXPECT_EQ(one, expected);

  PersistableBundle all;
  ASSERT_TRUE(service->getAllAvailableApplicationStateData(&all).isOk());
  EXPECT_EQ(all.getPersistableBundleKeys(), (std::set<String16>{String16("7"), String16("8")}));

  EXPECT_THAT(handler->events,
              ElementsAre(Event{EventName::GetForProcessStart, EventType::Start, EventFlow::Collector, 7},
                          Event{EventName::GetForProcessSuccess, EventType::Success, EventFlow::Collector, 7},
                          Event{EventName::GetAllStart, EventType::Start, EventFlow::Collector},
                          Event{EventName::GetAllSuccess, EventType::Success, EventFlow::Collector}));
  EXPECT_FALSE(handler->unexpected);
}

TEST_F(CollectorServiceTest, UnknownProcessIsNoErrorAndNoSuccess) {
  PersistableBundle out;
  out.putInt(String16("kept"), 1);
  EXPECT_TRUE(handler->getApplicationStateDataForProcess(7, &out).isOk());
  EXPECT_EQ(out.size(), 1u);
  EXPECT_THAT(handler->events,
              ElementsAre(Event{EventName::GetForProcessStart, EventType::Start, EventFlow::Collector, 7}));
}

TEST_F(CollectorServiceTest, NoProcessAtAllIsASuccess) {
  PersistableBundle out;
  EXPECT_TRUE(handler->getAllAvailableApplicationStateData(&out).isOk());
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(handler->events.back().type, EventType::Success);
}

TEST_F(CollectorServiceTest, MissingStateManagerIsToldToCallerLogAndTelemetry) {
  Handler broken(nullptr, std::make_unique<FakeContext>(contextCalls));
  PersistableBundle out;
  expectNullPointer(broken, &out);
  expectNullPointer(broken, nullptr);
  EXPECT_EQ(log.count("Missing state manager\n"), 4u) << "it comes before the look at the bundle";
  EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, kTag, "Missing state manager\n"));
  broken.events.resize(4);
  EXPECT_EQ(broken.events, refusals(kNoManager));
}

TEST_F(CollectorServiceTest, MissingReplyBundleIsToldToCallerLogAndTelemetry) {
  publish(7, "screen", "home");
  expectNullPointer(*handler, nullptr);
  EXPECT_EQ(handler->events, refusals(kNoBundle));
  EXPECT_EQ(log.count("null aidl return\n"), 2u);
  EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, kTag, "null aidl return\n"));
}

TEST_F(CollectorServiceTest, SystemContextJoinsTheGlobalStatesAndReportsNothing) {
  pendingAtoms.push_back({true, "telemetry", 0, "id", "s1", 1});
  PersistableBundle out;
  EXPECT_TRUE(handler->getSystemContextData(&out).isOk());
  PersistableBundle half;
  EXPECT_TRUE(out.getPersistableBundle(String16("GlobalStateData"), &half));
  EXPECT_EQ(half.getPersistableBundleKeys(), std::set<String16>{String16("telemetry")});
  EXPECT_TRUE(out.getPersistableBundle(String16("SystemContextData"), &half));
  EXPECT_EQ(half.getStringKeys(), std::set<String16>{String16("build_tags")});

  EXPECT_EQ(handler->getSystemContextData(nullptr).exceptionCode(), Status::EX_NULL_POINTER);
  EXPECT_EQ(log.count("null aidl return\n"), 1u);
  EXPECT_THAT(handler->events, IsEmpty());
}

TEST_F(CollectorServiceTest, AnEventPullsWhatWasPublished) {
  const std::string withData = "DiagnosticsCollectorService::onEvent called with data and with event id: 1";
  const std::string plain = "DiagnosticsCollectorService::onEvent called with event id: 1";
  publish(7, "screen", "home");
  handler->onEvent(1, std::nullopt);
  EXPECT_THAT(pendingAtoms, IsEmpty());
  handler->onEvent(1, std::unordered_map<std::string, std::string>{});
  EXPECT_EQ(log.count(withData), 0u);
  handler->onEvent(1, {{{"signal", "11"}}});
  EXPECT_TRUE(log.has(ANDROID_LOG_INFO, kTag, withData));
  EXPECT_TRUE(log.has(ANDROID_LOG_INFO, kTag, plain));
  EXPECT_EQ(log.count(plain), 3u);
}

TEST_F(CollectorServiceTest, PeriodicWorkRunsBetweenCreationAndDestruction) {
  const sp<DiagnosticsCollectorService> service = new DiagnosticsCollectorService(handler);
  service->onCreate();
  EXPECT_THAT(contextCalls, ElementsAre("start"));
  service->onDestroy();
  EXPECT_THAT(contextCalls, ElementsAre("start", "stop"));
}

TEST(CollectorServiceDeathTest, FirstCallWithoutAHandlerEndsTheProcessSayingSo) {
  const sp<DiagnosticsCollectorService> service = new DiagnosticsCollectorService(nullptr);
  PersistableBundle out;
  EXPECT_DEATH(service->onCreate(), "The service has no handler");
  EXPECT_DEATH(service->getSystemContextData(&out), "The service has no handler");
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
