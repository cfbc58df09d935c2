#include <future>

#include <gmock/gmock.h>

#include "service/BundlePacking.h"
#include "service/DiagnosticsCollectorService.h"
#include "service/DiagnosticsCollectorServiceHandler.h"
#include "service/DiagnosticsNotificationService.h"
#include "storage/Limits.h"
#include "support/Bundles.h"
#include "support/LogCapture.h"

namespace Torv::OS::Diagnostics {
namespace {

using android::sp, android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using enum Telemetry::EventFlow;
using enum Telemetry::EventName;
using enum Telemetry::EventType;
using test::process, test::strings, test::with;
using testing::ElementsAre, testing::IsEmpty;

constexpr char kTag[] = "DiagnosticsCollectorService";

struct Event {
  Telemetry::EventName name;
  Telemetry::EventType type;
  Telemetry::EventFlow flow;
  std::optional<int> pid = std::nullopt;
  std::optional<std::string> errorReason = std::nullopt;

  bool operator==(const Event&) const = default;
};

// Records what a class reports to telemetry instead of sending it.
template <typename Base>
struct Recording : Base {
  using Base::Base;

  bool reportEvent(Telemetry::EventName name, Telemetry::EventType type, Telemetry::EventFlow flow,
                   std::optional<int> pid, std::optional<int> clientAppId,
                   std::optional<std::string> errorReason, std::optional<std::string> errorTrace) override {
    EXPECT_FALSE(clientAppId || errorTrace) << "which no report of the service has";
    events.push_back({name, type, flow, pid, errorReason});
    return false;
  }

  std::vector<Event> events;
};

// statsd as a list that a test fills.
struct FakeStatsd : LibstatsdWrapper {
  explicit FakeStatsd(std::vector<ApplicationState>& atoms) : pending(atoms) {}
  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    return std::exchange(pending, {});
  }

  std::vector<ApplicationState>& pending;
};

struct FakeContext : SystemContextManager {
  explicit FakeContext(const std::function<void()>& work)
      : SystemContextManager(nullptr, nullptr), work(work) {}
  StringMap getSystemContext() override {
    if (work) work();
    return {{"build_tags", "dev"}};
  }

  const std::function<void()>& work;
};

PersistableBundle nested(const PersistableBundle& bundle, const char* key) {
  PersistableBundle value;
  EXPECT_TRUE(bundle.getPersistableBundle(String16(key), &value));
  return value;
}

// The size that the bundle takes in a reply, after the status.
size_t replySize(const PersistableBundle& bundle) {
  android::Parcel reply;
  Status::ok().writeToParcel(&reply);
  reply.writeParcelable(bundle);
  return reply.dataSize();
}

class CollectorServiceTest : public testing::Test {
 protected:
  using Handler = Recording<DiagnosticsCollectorServiceHandler>;

  void publish(int pid, const std::string& key, const std::string& value) {
    pendingAtoms.push_back({false, "", pid, key, value, static_cast<int64_t>(pendingAtoms.size())});
  }

  // Both requests about application states answer so, and tell the log and telemetry why.
  void expectRefused(Handler& refusing, const char* line, const char* reason) {
    EXPECT_EQ(refusing.getApplicationStateDataForProcess(7, nullptr).exceptionCode(),
              Status::EX_NULL_POINTER);
    EXPECT_EQ(refusing.getAllAvailableApplicationStateData(nullptr).exceptionCode(), Status::EX_NULL_POINTER);
    EXPECT_THAT(refusing.events, ElementsAre(Event{GetForProcessStart, Start, Collector, 7},
                                             Event{GetForProcessError, Error, Collector, 7, reason},
                                             Event{GetAllStart, Start, Collector},
                                             Event{GetAllError, Error, Collector, std::nullopt, reason}));
    EXPECT_EQ(log.count(line), 2u);
    EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, kTag, line));
  }

  test::LogCapture log;
  std::vector<ApplicationState> pendingAtoms;
  std::function<void()> whileAContextIsMade;
  std::shared_ptr<Handler> handler = std::make_shared<Handler>(
      std::make_unique<ApplicationStateManager>(
          std::make_unique<BlackBox>(),
          std::make_unique<StatsManager>(std::make_unique<FakeStatsd>(pendingAtoms)), 60),
      std::make_unique<FakeContext>(whileAContextIsMade));
};

// An unknown process is no error and no success; no process at all is a success.
TEST_F(CollectorServiceTest, answersWithWhatWasPublishedAndReportsIt) {
  const sp<DiagnosticsCollectorService> service = new DiagnosticsCollectorService(handler);
  PersistableBundle out = strings({{"kept", "1"}});
  EXPECT_TRUE(service->getApplicationStateDataForProcess(7, String16("ignored"), &out).isOk());
  EXPECT_TRUE(service->getAllAvailableApplicationStateData(&out).isOk());
  EXPECT_EQ(out, strings({{"kept", "1"}}));

  publish(7, "screen", "old");
  publish(7, "screen", "new");
  publish(8, "screen", "other");
  PersistableBundle one;
  EXPECT_TRUE(service->getApplicationStateDataForProcess(7, String16("ignored"), &one).isOk());
  EXPECT_EQ(one, process(7, strings({{"screen", "new"}})));
  PersistableBundle all;
  EXPECT_TRUE(service->getAllAvailableApplicationStateData(&all).isOk());
  EXPECT_EQ(all, with(with({}, "7", one), "8", process(8, strings({{"screen", "other"}}))));
  const Event start{GetForProcessStart, Start, Collector, 7};
  const Event startAll{GetAllStart, Start, Collector};
  const Event successAll{GetAllSuccess, Success, Collector};
  EXPECT_THAT(handler->events,
              ElementsAre(start, startAll, successAll, start,
                          Event{GetForProcessSuccess, Success, Collector, 7}, startAll, successAll));
}

TEST_F(CollectorServiceTest, whatIsMissingIsToldToCallerLogAndTelemetry) {
  expectRefused(*handler, "null aidl return\n", "Invalid persistable bundle was provided to the API.");
  // It comes before the look at the bundle.
  Handler broken(nullptr, nullptr);
  expectRefused(broken, "Missing state manager\n", "Application state manager was not properly initialized.");
}

TEST_F(CollectorServiceTest, systemContextJoinsTheGlobalStatesAndReportsNothing) {
  PersistableBundle out;
  EXPECT_TRUE(handler->getSystemContextData(&out).isOk());
  EXPECT_EQ(out,
            with(with({}, "SystemContextData", strings({{"build_tags", "dev"}})), "GlobalStateData", {}));
  pendingAtoms.push_back({true, "telemetry", 0, "id", "s1", 1});
  EXPECT_TRUE(handler->getSystemContextData(&out).isOk());
  EXPECT_EQ(nested(out, "GlobalStateData").getPersistableBundleKeys(), std::set{String16("telemetry")});
  PersistableBundle globals;
  packAllGlobalStatesToBundle({{"telemetry", {{"id", "s1"}}}}, &globals);
  const PersistableBundle named = strings({{"GlobalNamespace", "telemetry"}});
  EXPECT_EQ(globals, with({}, "telemetry", with(named, "GlobalStateData", strings({{"id", "s1"}}))));

  EXPECT_EQ(handler->getSystemContextData(nullptr).exceptionCode(), Status::EX_NULL_POINTER);
  EXPECT_EQ(log.count("null aidl return\n"), 1u);
  EXPECT_THAT(handler->events, IsEmpty());
}

TEST_F(CollectorServiceTest, aDriverThatHangsKeepsNobodyWhoAsksAboutApplications) {
  whileAContextIsMade = [this] {
    std::async(std::launch::async, [this] {
      PersistableBundle out;
      EXPECT_TRUE(handler->getApplicationStateDataForProcess(7, &out).isOk());
      EXPECT_TRUE(handler->getAllAvailableApplicationStateData(&out).isOk());
    }).wait();
  };
  PersistableBundle out;
  EXPECT_TRUE(handler->getSystemContextData(&out).isOk());
}

TEST_F(CollectorServiceTest, anAnswerAboutOneLeavesOutItsOldestStatesUntilItFitsAndOneAboutAllTheLargest) {
  for (int i = 0; i < 600; ++i) publish(7, "key " + std::to_string(i), std::string(1000, 'x'));
  publish(8, "screen", "home");
  PersistableBundle out;
  ASSERT_TRUE(handler->getApplicationStateDataForProcess(7, &out).isOk());
  const std::set<String16> states = nested(out, "ApplicationStateData").getStringKeys();
  EXPECT_LE(replySize(out), kMaxReplyBytes);
  EXPECT_GT(replySize(out), kMaxReplyBytes - 3000);
  EXPECT_EQ(states.count(String16("key 0")), 0u);
  EXPECT_EQ(states.count(String16("key 599")), 1u);
  PersistableBundle all;
  ASSERT_TRUE(handler->getAllAvailableApplicationStateData(&all).isOk());
  EXPECT_EQ(all, with(with({}, "7", process(7, {})), "8", process(8, strings({{"screen", "home"}}))));
  EXPECT_EQ(log.count("1 processes did not fit into a reply and were left out: 7"), 1u);
}

TEST_F(CollectorServiceTest, aSystemContextThatDoesNotFitLosesItsLargestValuesAndFitsBesideAllGlobals) {
  for (int i = 0; i < 100; ++i) {  // each byte takes six characters in JSON
    pendingAtoms.push_back({true, "telemetry", 0, std::to_string(i), std::string(4000, '\x01'), 1});
  }
  StringMap context{{"psi_cpu_history", std::string(100'000, 'x')},
                    {"ci_test_context", std::string(100'001, 'x')}};
  EXPECT_THAT(leaveOutLargest(kMaxContextReplyBytes, &context), ElementsAre("ci_test_context"));
  EXPECT_THAT(context, ElementsAre(testing::Key("psi_cpu_history")));
  EXPECT_THAT(leaveOutLargest(kMaxContextReplyBytes, &context), IsEmpty());
  PersistableBundle out;
  EXPECT_TRUE(handler->getSystemContextData(&out).isOk());
  EXPECT_LE(replySize(out), kMaxReplyBytes - kMaxContextReplyBytes);
}

// Returns the UTF-16 text that a bundle carries for these bytes.
String16 carried(const std::string& bytes) {
  PersistableBundle bundle;
  packMapToBundle({{"key", bytes}}, &bundle);
  String16 text;
  EXPECT_TRUE(bundle.getString(String16("key"), &text));
  return text;
}

// An application that cuts its text at a number of bytes must not lose all of it.
TEST(BundlePackingTest, textIsCarriedWholeAndOnlyMalformedBytesAreReplaced) {
  std::vector<std::pair<std::string, std::u16string>> cases = {
      {"", u""},
      {"Gr\u00fc\u00dfe \u65e5\u672c", u"Gr\u00fc\u00dfe \u65e5\u672c"},
      {"\U0001f600\U0010ffff", u"\U0001f600\U0010ffff"},
      {std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
      {"caf\xc3", u"caf\ufffd"},
      {"\xf0\x9f\x98", u"\ufffd\ufffd\ufffd"},
      {"\xe2z\xc3\xa9", u"\ufffdz\u00e9"},
      {"\xc0\xaf", u"\ufffd\ufffd"},                     // overlong
      {"\xe0\x80\xaf", u"\ufffd\ufffd\ufffd"},           // overlong
      {"\xed\xa0\x80", u"\ufffd\ufffd\ufffd"},           // a surrogate
      {"\xf4\x90\x80\x80", u"\ufffd\ufffd\ufffd\ufffd"}  // beyond Unicode
  };
  // Short and long text take different memory on the way; 256 bytes are the last short text.
  for (const size_t size : {255, 256, 257, 10'000}) {
    const std::string bytes(size, 'x');
    const std::u16string units(size, u'x');
    cases.emplace_back(bytes, units);
    cases.emplace_back(bytes + "\u65e5", units + u"\u65e5");
    cases.emplace_back(bytes + "\xe6\x97", units + u"\ufffd\ufffd");
  }
  for (const auto& [bytes, units] : cases) {
    EXPECT_EQ(carried(bytes), String16(units.data(), units.size())) << bytes.size() << " " << bytes;
  }
}

TEST(BundlePackingTest, aReplyIsNeverLargerThanItIsCounted) {
  for (size_t length = 0; length < 9; ++length) {
    ProcessStates states;
    size_t counted = 0;
    for (int pid : {1, -2'000'000'000}) {
      counted += kReplyBytesPerProcess;
      for (int key = 0; key < 9; ++key) {
        const std::string text = std::to_string(key) + std::string(length, 'x');
        states[pid][text] = text;
        counted += replyBytesOfState(text.size(), text.size());
      }
    }
    PersistableBundle all;
    packAllProcessStatesToBundle(states, &all);
    constexpr size_t kFrame = 24;  // the status, and the outer bundle's header
    EXPECT_LE(replySize(all), counted + kFrame) << length;
    EXPECT_GE(replySize(all) * 5, counted * 4) << length;
  }
}

TEST_F(CollectorServiceTest, anEventPullsWhatWasPublished) {
  publish(7, "screen", "home");
  handler->onEvent(1, std::nullopt);
  EXPECT_THAT(pendingAtoms, IsEmpty());
  handler->onEvent(1, StringMap{});
  handler->onEvent(1, StringMap{{"signal", "11"}});
  EXPECT_EQ(log.count("DiagnosticsCollectorService::onEvent called with event id: 1"), 3u);
  EXPECT_EQ(log.count("DiagnosticsCollectorService::onEvent called with data and with event id: 1"), 1u);
}

struct MockObserver : Observer {
  MOCK_METHOD(void, onEvent, (int, std::optional<StringMap>), (override));
};

TEST(NotificationServiceTest, everyObserverHearsOfAnEventOnceAndInOrderAndOfNoOtherCode) {
  const test::LogCapture log;
  const auto first = std::make_shared<testing::StrictMock<MockObserver>>();
  const auto second = std::make_shared<testing::StrictMock<MockObserver>>();
  using Service = Recording<DiagnosticsNotificationService>;
  const sp<Service> service = new Service(std::vector<std::shared_ptr<Observer>>{first, second});
  const auto notify = [&](int32_t code) {
    service->events.clear();
    const auto event =
        static_cast<dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode>(code);
    return service->notifySystemEvent(event, strings({{"signal", "11"}})).exceptionCode();
  };
  const testing::InSequence order;
  const Event start{NotifyStart, Start, Notification};
  for (int event : {0, 1}) {
    EXPECT_CALL(*first, onEvent(event, testing::Eq(std::nullopt)));
    EXPECT_CALL(*second, onEvent(event, testing::Eq(std::nullopt)));
    EXPECT_EQ(notify(event), Status::EX_NONE);
    EXPECT_THAT(service->events, ElementsAre(start, Event{NotifySuccess, Success, Notification}));
  }
  EXPECT_TRUE(
      log.has(ANDROID_LOG_INFO, kTag, "DiagnosticsNotificationService: Received notification of event: 1"));

  using Limits = std::numeric_limits<int32_t>;
  for (int32_t code : {2, -1, Limits::min(), Limits::max()}) {
    EXPECT_EQ(notify(code), Status::EX_ILLEGAL_STATE) << code;
    const char* const reason =
        "Diagnostics Notification Service detected invalid system event. Failed to notify the observers.";
    EXPECT_THAT(service->events,
                ElementsAre(start, Event{NotifyError, Error, Notification, std::nullopt, reason}));
  }
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
