// The public names of states, feed and services, used the way that other code uses them. Most of it is
// checked by compiling, in the dialect of the device's toolchain.
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <osutils/ServiceHost.h>

#include "service/BundlePacking.h"
#include "service/DiagnosticsCollectorService.h"
#include "service/DiagnosticsCollectorServiceHandler.h"
#include "service/DiagnosticsNotificationService.h"
#include "state/ApplicationStateManager.h"
#include "stats/StatsManager.h"
#include "stats/StatsManagerBuilder.h"
#include "storage/BlackBox.h"
#include "storage/State.h"
#include "vendor/velmor/packages/services/StatsCollector/src/pelluxatoms.pb.h"
#include "vendor/velmor/services/telemetry/shared/statsd/TelemetrySessionInfo.pb.h"

namespace {

using namespace Torv::OS::Diagnostics;  // NOLINT(google-build-using-namespace): as the service's own sources
                                        // do
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using dev::kerno::internal::diagnostics::IDiagnosticsCollectorService;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationService;
using States = std::unordered_map<std::string, std::string>;
using StatesByPid = std::unordered_map<int, States>;
using StatesByNamespace = std::unordered_map<std::string, States>;

template <typename Expected, typename Actual>
void expectType(const Actual& /*actual*/) {
  static_assert(std::is_same_v<Expected, Actual>);
}

TEST(StateSurfaceTest, aStateStandsOnItsOwn) {
  State state;
  EXPECT_FALSE(state.isDead);
  EXPECT_EQ(state.deathTime, int64_t{0});
  for (const int64_t timestamp : {10, 20, 30, 40}) state.add("key", timestamp, std::to_string(timestamp));
  expectType<std::optional<std::string>>(std::as_const(state).get("key", true));
  EXPECT_EQ(std::as_const(state).get("key", false), "40");
  EXPECT_EQ(std::as_const(state).getAll(false), (States{{"key", "40"}}));
  const State::Entry older{10, "a"};
  const State::Entry newer{20, "b"};
  const State::StateComparator comparator;
  EXPECT_TRUE(comparator(older, newer) && comparator(older, older) && !comparator(newer, older));
}

TEST(StateSurfaceTest, aBlackBoxAnswersByPidAndNamespace) {
  BlackBox box;
  box.addProcessState(1, "key", 10, "value");
  box.addGlobalState("telemetry", "id", 10, "session");
  const BlackBox& asked = box;
  expectType<std::optional<States>>(asked.getAllForPid(1));
  expectType<StatesByPid>(asked.getAllProcessStates());
  expectType<StatesByNamespace>(asked.getAllGlobalStates());
  EXPECT_EQ(asked.getAllLivePids(), std::vector<int>{1});
  asked.markProcessAsDead(1);
  EXPECT_TRUE(asked.getAllLivePids().empty());
  box.cleanupAllWithTtl(0);
  EXPECT_EQ(asked.getAllForPid(1), std::nullopt);
}

class OneState : public LibstatsdWrapper {
 public:
  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    return std::vector<ApplicationState>{{false, "", 7, "screen", "home", 1}};
  }
};

TEST(StateSurfaceTest, aStatsManagerIsMadeByDefaultOrByItsBuilder) {
  std::unique_ptr<StatsManager> (*make)() = &StatsManager::makeDefaultManager;
  EXPECT_NE(make, nullptr);
  EXPECT_EQ(StatsManagerBuilder().build(), nullptr) << "it was given no atoms";
  StatsManager manager(std::make_unique<OneState>());
  expectType<std::vector<ApplicationState>>(manager.fetchReports());
}

TEST(StateSurfaceTest, aStateManagerAnswersAndCleansUp) {
  std::unique_ptr<ApplicationStateManager> (*make)() = &ApplicationStateManager::makeDefaultManager;
  EXPECT_NE(make, nullptr);
  static_assert(std::has_virtual_destructor_v<ApplicationStateManager>);
  ApplicationStateManager manager(std::make_unique<BlackBox>(),
                                  std::make_unique<StatsManager>(std::make_unique<OneState>()), 60);
  manager.startCleanupPeriodicTask();
  manager.updateApplicationStateManager();
  expectType<std::optional<States>>(manager.getApplicationStateForPid(7));
  expectType<StatesByPid>(manager.getAllProcessStates());
  expectType<StatesByNamespace>(manager.getAllGlobalStates());
  manager.checkForDeadProcesses();
  manager.cleanup();
  manager.stopCleanupPeriodicTask();
}

TEST(StateSurfaceTest, atomsAreMessagesOfTheVendorsSchema) {
  namespace atoms = vendor::pellux::hardware::PelluxAtoms;
  static_assert(atoms::FUEL_GAUGE_SNAPSHOT_QC == 110000 && atoms::APPLICATION_STATE_DATA == 110010);
  static_assert(atoms::PELLUX_BT_VENDOR_HCI_RERPOT == 110012 &&
                atoms::DROPBOX_ENTRY_DROPPED_EXTENDED == 111038);
  atoms::ApplicationStateData data;
  EXPECT_TRUE(data.ParseFromString("\x08\x07\x12\x01k\x1a\x01v"));
  EXPECT_EQ(std::to_string(data.pid()) + data.key() + data.value(), "7kv");
  pellux::telemetry::TelemetrySessionInfo session;
  EXPECT_TRUE(session.ParseFromString("\x0a\x01s\x12\x01u"));
  EXPECT_EQ(session.service_session_id() + session.user_active_session_id(), "su");
}

TEST(StateSurfaceTest, aHandlerIsAnObserverAndReportsTelemetry) {
  std::shared_ptr<DiagnosticsCollectorServiceHandler> (*make)() =
      &DiagnosticsCollectorServiceHandler::makeDefaultServiceHandler;
  EXPECT_NE(make, nullptr);
  using Handler = DiagnosticsCollectorServiceHandler;
  static_assert(std::is_base_of_v<Observer, Handler>);
  static_assert(std::is_base_of_v<Telemetry::DiagnosticsCollectorTelemetry, Handler>);
  Status (Handler::*one)(int, PersistableBundle*) = &Handler::getApplicationStateDataForProcess;
  Status (Handler::*all)(PersistableBundle*) = &Handler::getAllAvailableApplicationStateData;
  Status (Handler::*context)(PersistableBundle*) = &Handler::getSystemContextData;
  for (void (Handler::*operation)() :
       {&Handler::startCleanupPeriodicTask, &Handler::stopCleanupPeriodicTask,
        &Handler::startSystemStateCollectorThread, &Handler::stopSystemStateCollectorThread}) {
    EXPECT_NE(operation, nullptr);
  }
  EXPECT_TRUE(one != nullptr && all != nullptr && context != nullptr);
}

TEST(StateSurfaceTest, mapsArePackedIntoBundles) {
  PersistableBundle out;
  packMapToBundle({{"key", "value"}}, &out);
  packProcessEntriesToBundle(7, {{"key", "value"}}, &out);
  packAllProcessStatesToBundle({{7, {{"key", "value"}}}}, &out);
  packGlobalStateEntriesToBundle("telemetry", {{"key", "value"}}, &out);
  packAllGlobalStatesToBundle({{"telemetry", {{"key", "value"}}}}, &out);
  packSystemContextToBundle({{"key", "value"}}, {{"telemetry", {}}}, &out);
  EXPECT_EQ(out.size(), 8U);
}

TEST(StateSurfaceTest, theCollectorServiceIsABinderObject) {
  const android::sp<DiagnosticsCollectorService> service =
      new DiagnosticsCollectorService(std::shared_ptr<DiagnosticsCollectorServiceHandler>());
  EXPECT_EQ(service->getInterfaceDescriptor(),
            String16("dev.kerno.internal.diagnostics.IDiagnosticsCollectorService"));
  EXPECT_EQ(android::interface_cast<IDiagnosticsCollectorService>(android::sp<android::IBinder>(service)),
            service);
  void (DiagnosticsCollectorService::*operations[])() = {&DiagnosticsCollectorService::onCreate,
                                                         &DiagnosticsCollectorService::onDestroy};
  EXPECT_NE(operations[0], operations[1]);
  Status (DiagnosticsCollectorService::*one)(int32_t, const String16&, PersistableBundle*) =
      &DiagnosticsCollectorService::getApplicationStateDataForProcess;
  EXPECT_NE(one, nullptr);
}

class CountingObserver : public Observer {
 public:
  void onEvent(int eventId, std::optional<States> data) override { events += data ? 100 : 1 + eventId; }
  int events = 0;
};

class SilentNotifier : public DiagnosticsNotificationService {
 public:
  using DiagnosticsNotificationService::DiagnosticsNotificationService;
  bool allowedCallerUID() override { return true; }
  bool reportEvent(Telemetry::EventName, Telemetry::EventType, Telemetry::EventFlow, std::optional<int>,
                   std::optional<int>, std::optional<std::string>, std::optional<std::string>) override {
    return true;
  }
};

TEST(StateSurfaceTest, theNotificationServiceIsAProducerForItsObservers) {
  static_assert(std::is_base_of_v<Producer, DiagnosticsNotificationService>);
  const auto observer = std::make_shared<CountingObserver>();
  const std::vector<std::shared_ptr<Observer>> observers{observer};
  const android::sp<SilentNotifier> service = new SilentNotifier(observers);
  EXPECT_EQ(service->getInterfaceDescriptor(),
            String16("dev.kerno.internal.diagnostics.IDiagnosticsNotificationService"));
  EXPECT_TRUE(service->notifySystemEvent(static_cast<IDiagnosticsNotificationEventCode>(1), {}).isOk());
  EXPECT_EQ(service->notifySystemEvent(static_cast<IDiagnosticsNotificationEventCode>(2), {}).exceptionCode(),
            Status::EX_ILLEGAL_STATE);
  EXPECT_EQ(observer->events, 2);
  EXPECT_EQ(service->dump(1, {}), android::OK);
}

TEST(StateSurfaceTest, aServiceHostTakesNamesWithBinders) {
  using Entry = std::pair<std::string_view,
                          std::variant<android::sp<android::IBinder>, std::shared_ptr<ndk::ICInterface>>>;
  using Torv::OS::ServiceHost;
  static_assert(std::is_constructible_v<ServiceHost, std::initializer_list<const Entry>> ||
                std::is_constructible_v<ServiceHost, std::initializer_list<Entry>>);
  void (ServiceHost::*start)() = &ServiceHost::startThreadPool;
  EXPECT_NE(start, nullptr);
}

}  // namespace
