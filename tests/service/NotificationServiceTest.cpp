#include <limits>
#include <string>
#include <vector>

#include <unistd.h>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Recording.h"
#include "fixture/Process.h"
#include "service/DiagnosticsNotificationService.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace Torv::OS::Diagnostics {
namespace {

using android::sp;
using android::binder::Status;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode;
using Telemetry::EventFlow;
using Telemetry::EventName;
using Telemetry::EventType;
using test::Event;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kTag[] = "DiagnosticsCollectorService";

class NamedObserver : public Observer {
 public:
  NamedObserver(std::string name, std::vector<std::string>& calls) : mName(std::move(name)), mCalls(calls) {}
  void onEvent(int eventId, std::optional<std::unordered_map<std::string, std::string>> data) override {
    mCalls.push_back(mName + std::to_string(eventId) + (data ? " with data" : ""));
  }

 private:
  std::string mName;
  std::vector<std::string>& mCalls;
};

class NotificationServiceTest : public testing::Test {
 protected:
  Status notify(int32_t code) {
    android::os::PersistableBundle details;
    details.putInt(android::String16("signal"), 11);
    return service->notifySystemEvent(static_cast<IDiagnosticsNotificationEventCode>(code), details);
  }

  test::LogCapture log;
  std::vector<std::string> calls;
  sp<test::Recording<DiagnosticsNotificationService>> service =
      new test::Recording<DiagnosticsNotificationService>(
          std::vector<std::shared_ptr<Observer>>{std::make_shared<NamedObserver>("first ", calls),
                                                 std::make_shared<NamedObserver>("second ", calls)});
};

TEST_F(NotificationServiceTest, EveryObserverHearsOfAnEventOnceAndInOrder) {
  EXPECT_TRUE(notify(0).isOk());
  EXPECT_TRUE(notify(1).isOk());
  EXPECT_THAT(calls, ElementsAre("first 0", "second 0", "first 1", "second 1"));
  const Event start{EventName::NotifyStart, EventType::Start, EventFlow::Notification};
  const Event success{EventName::NotifySuccess, EventType::Success, EventFlow::Notification};
  EXPECT_THAT(service->events, ElementsAre(start, success, start, success));
  EXPECT_TRUE(
      log.has(ANDROID_LOG_INFO, kTag, "DiagnosticsNotificationService: Received notification of event: 1"));
}

TEST_F(NotificationServiceTest, AnyOtherCodeIsRefusedAndReachesNobody) {
  using Limits = std::numeric_limits<int32_t>;
  for (int32_t code : {2, 3, -1, -2, Limits::min(), Limits::max()}) {
    service->events.clear();
    EXPECT_EQ(notify(code).exceptionCode(), Status::EX_ILLEGAL_STATE) << code;
    EXPECT_THAT(
        service->events,
        ElementsAre(Event{EventName::NotifyStart, EventType::Start, EventFlow::Notification},
                    Event{EventName::NotifyError, EventType::Error, EventFlow::Notification, std::nullopt,
                          "Diagnostics Notification Service detected invalid system event. Failed to "
                          "notify the observers."}));
    EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, kTag, "Unexpected system event: " + std::to_string(code)));
  }
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(NotificationServiceTest, DumpWritesNothing) {
  const test::TempDir dir;
  const std::string path = dir.write("dump", "");
  const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(service->dump(fd, {}), android::OK);
  close(fd);
  EXPECT_EQ(test::readFile(path), "");
}

TEST_F(NotificationServiceTest, OnlyTheSystemAndRootAreAllowedCallers) {
  if (getuid() != 0) GTEST_SKIP() << "takes root to act as other uids";
  // Outside of a call the caller is the thread itself.
  for (const auto& [uid, allowed] :
       {std::pair<uid_t, bool>{0, true}, {1000, true}, {1001, false}, {10000, false}}) {
    bool answer = !allowed;
    fixture::actAs(uid, [&answer, this] { answer = service->allowedCallerUID(); });
    EXPECT_EQ(answer, allowed) << uid;
  }
}

TEST(NotificationServiceDeathTest, AMissingObserverEndsTheProcessSayingSo) {
  const sp<DiagnosticsNotificationService> service =
      new test::Recording<DiagnosticsNotificationService>(std::vector<std::shared_ptr<Observer>>{nullptr});
  EXPECT_DEATH(service->notifySystemEvent(IDiagnosticsNotificationEventCode::APPLICATION_CRASHED, {}),
               "An observer of events is missing");
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
