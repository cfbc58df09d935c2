// The public names of the service, each used once as other code uses it, in the dialect of the device's
// toolchain. Most of it is checked by compiling; what the names do is checked by the tests of their folders.
#include <fstream>
#include <iterator>
#include <set>

#include <gtest/gtest.h>
#include <osutils/ServiceHost.h>

#include "BatteryCollector.h"
#include "CpuUsageCollector.h"
#include "GpuCollector.h"
#include "KernoDiagnosticsCollectorEventsEventLogger.h"
#include "PsiCollector.h"
#include "SystemMemInfoCollector.h"
#include "configuration/ConfigurationChain.h"
#include "configuration/DefaultConfiguration.h"
#include "configuration/JSONConfiguration.h"
#include "configuration/PreferencesConfiguration.h"
#include "os/PeriodicTask.h"
#include "service/DiagnosticsCollectorService.h"
#include "service/DiagnosticsCollectorServiceHandler.h"
#include "service/DiagnosticsNotificationService.h"
#include "stats/StatsManagerBuilder.h"
#include "storage/BlackBox.h"
#include "support/TempDir.h"
#include "sysprop/SharedOsServicesProperties.h"
#include "systemcontext/SystemContextManager.h"
#include "systemstatecollector/SystemStateCollectorManager.h"
#include "vendor/velmor/packages/services/StatsCollector/src/pelluxatoms.pb.h"
#include "vendor/velmor/services/telemetry/shared/statsd/TelemetrySessionInfo.pb.h"

namespace {

using namespace Torv::OS::Diagnostics;  // NOLINT(google-build-using-namespace): as the service's own sources
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using dev::kerno::internal::diagnostics::IDiagnosticsCollectorService;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode;
using Texts = std::unordered_map<std::string, std::string>;
using TextsByPid = std::unordered_map<int, Texts>;
using TextsByNamespace = std::unordered_map<std::string, Texts>;

// Compiles only if the value has this type, or if the class has a member function or a factory of this type.
template <typename Expected, typename Actual>
Actual typed(Actual&& actual) {
  static_assert(std::is_same_v<Expected, std::decay_t<Actual>>);
  return std::forward<Actual>(actual);
}
template <typename Class, typename... Arguments>
using Member = Status (Class::*)(Arguments...);
template <typename Class>
using Factory = std::unique_ptr<Class> (*)();
template <typename Class>
using Operation = void (Class::*)();

TEST(SurfaceTest, telemetryAndTasks) {
  namespace logger = dobrel::arvr::structuredlogger::kerno_diagnostics_collector_events;
  logger::KernoDiagnosticsCollectorEventsEvent event;
  event.eventType = std::string("a text longer than any that fits into the object, ") + "a temporary";
  event.processId = typed<int64_t>(int64_t{1});
  logger::KernoDiagnosticsCollectorEventsEventLogger empty(nullptr);
  EXPECT_EQ(empty.createTelemetryEvent(event), nullptr);
  EXPECT_FALSE(empty.record(nullptr, false));
  EXPECT_EQ(logger::KernoDiagnosticsCollectorEventsEventLogger::createSharedPtr(nullptr), nullptr);
  EXPECT_EQ(event.eventType.substr(50), "a temporary") << "an event record owns its texts";

  Torv::OS::PeriodicTask task(std::chrono::seconds(30), "name", std::function<void()>([] {}));
  task.start(false);
  task.stop(true);
}

TEST(SurfaceTest, configurationLayersFormAChain) {
  const test::TempDir runtime;
  const test::ScopedEnv environment("TORV_RUNTIME_DIR", runtime.path());
  auto preferences = std::make_unique<Torv::PreferencesConfiguration>(
      std::make_unique<Torv::DefaultConfiguration>(), static_cast<unsigned short>(1));
  preferences->setupPreferencesStoreManager();
  typed<std::shared_ptr<OSSDK::Preferences::v4::IPreferencesManager>>(
      preferences->getPreferencesStoreManager());
  const std::shared_ptr<Torv::OverridableConfiguration> chain =
      std::make_shared<Torv::OverridableConfiguration>(
          std::make_unique<Torv::JSONConfiguration>(Json::Value(Json::objectValue), std::move(preferences)));
  Torv::IConfiguration& configuration = *chain;
  EXPECT_EQ(typed<std::string>(configuration.getString("crash-reporter-user-agent")), "pellux/os");
  EXPECT_EQ(typed<unsigned short>(configuration.getUint("unknown")), 0);
  EXPECT_EQ(typed<int>(configuration.getInt("crash-reporter-logcat-tail-seconds")), 120);
  EXPECT_FALSE(typed<bool>(configuration.getBool("crash-reporter-url")));
  typed<std::map<std::string, std::string>>(configuration.getLocalStrMap("unknown"));
  configuration.registerPreferencesChangeCallback([](void*) {});
  configuration.registerPreferencesChangeCallback([] {}, "key");
  configuration.runCallbackFunctions();
  EXPECT_EQ(configuration.getCallbackSize(), 0U);

  namespace flags = pellux::sysprop::SharedOsServicesProperties;
  typed<std::optional<bool>>(flags::crash_report_collect_logs());
  typed<std::optional<bool>>(flags::crash_report_extended_logs_enabled());
  typed<std::optional<bool>>(flags::enable_diagnostics_collector_correlation());
}

TEST(SurfaceTest, aContextManagerCanBeDerivedFromAndParsesTagsIntoBothKindsOfSet) {
  typed<Factory<SystemContextManager>>(&SystemContextManager::makeDefaultManager);
  class Fixed : public SystemContextManager {
   public:
    using SystemContextManager::SystemContextManager;
    std::string getRawBuildTags() override { return "user,pebblor_id:1"; }
    std::string getRawBuildFingerprint() override { return "print"; }
  };
  Fixed manager(
      std::make_shared<Torv::OverridableConfiguration>(std::make_unique<Torv::DefaultConfiguration>()),
      nullptr);
  manager.startSystemStateCollectorThread();
  manager.stopSystemStateCollectorThread();
  EXPECT_EQ(
      typed<Texts>(manager.getSystemContext()),
      (Texts{{"build_tags", "user,pebblor_id:1"}, {"build_fingerprint", "print"}, {"pebblor_id", "1"}}));
  Texts values;
  std::set<std::string> sorted;
  std::unordered_set<std::string> hashed;
  EXPECT_TRUE(SystemContextManager::parseBuildTags("a:b:c,d", sorted, values));
  EXPECT_TRUE(SystemContextManager::parseBuildTags(std::string("d"), hashed, values));
}

// A collector of somebody else's, in a manager of its own.
class Other : public SystemStateCollector {
 public:
  Other() : SystemStateCollector(SystemStateCollectorConfig(60, 1)) {}
  uint8_t getId() const override { return 200; }
  std::string getDescription() const override { return "other"; }
  bool collectSystemStateData() override { return true; }
  std::unique_ptr<Texts> dumpSystemStateHistory() override {
    Json::Value report;
    Utils::addTimeSeriesDataToJsonReport(report, uint64_t{5}, Json::Value(1));
    return std::make_unique<Texts>(Texts{{"other_history", report["time_series"][0]["dt_ms"].asString()}});
  }
};

TEST(SurfaceTest, aManagerOfCollectorsIsDefaultConstructible) {
  SystemStateCollectorManager manager;
  manager.addCollector(std::make_unique<Other>());
  EXPECT_EQ(typed<size_t>(manager.collectorCount()), 1U);
  manager.startCollectorThread();
  manager.stopCollectorThread();
  manager.pollCollectors();
  EXPECT_EQ(*typed<std::unique_ptr<Texts>>(manager.dumpSystemStateHistory()),
            (Texts{{"other_history", "5"}}));
  CircularBuffer<int> ring(60);
  ring.reserve() = 1;
  std::vector<int> held;
  EXPECT_EQ(typed<uint64_t>(ring.readAll(std::back_inserter(held))), 1U);
}

// The id and the history's name, as every collector has them.
std::string identity(SystemStateCollector& collector) {
  EXPECT_TRUE(collector.collectSystemStateData());
  EXPECT_EQ(collector.getMaxSamples(), 60U);
  EXPECT_FALSE(collector.getDescription().empty());
  return std::to_string(collector.getId()) + " " + collector.dumpSystemStateHistory()->begin()->first;
}

TEST(SurfaceTest, collectorsAreMadeFromAConfigurationAndAStreamOrByTheirFactory) {
  const test::TempDir root;
  for (const char* file : {"charge_counter", "charge_full"}) {
    root.write(std::string("sys/class/power_supply/battery/") + file, "3000");
  }
  root.write("proc/stat", "cpu 1 2 3 4\n");
  const test::ScopedEnv environment("TORV_DEVICE_ROOT", root.path());
  const SystemStateCollectorConfig config(60, 2);
  PsiCpuCollector pressure(config, std::ifstream("/proc/stat"));  // any text will do
  PsiMemCollector memoryPressure(config, std::ifstream("/proc/stat"));
  PsiIoCollector ioPressure(config, std::ifstream("/proc/stat"));
  SystemMemInfoCollector memory(config, std::ifstream("/proc/meminfo"));
  GpuCollector gpu(config, std::ifstream("/proc/stat"));
  const std::unique_ptr<BatteryCollector> battery = BatteryCollector::init(config);
  const std::unique_ptr<CpuUsageCollector> cpu = CpuUsageCollector::init(config);
  typed<std::unique_ptr<PsiMemCollector>>(PsiMemCollector::init(config));
  ASSERT_TRUE(battery != nullptr && cpu != nullptr);
  EXPECT_EQ(identity(pressure), "1 psi_cpu_history");
  EXPECT_EQ(identity(memoryPressure), "2 psi_memory_history");
  EXPECT_EQ(identity(ioPressure), "3 psi_io_history");
  EXPECT_EQ(identity(memory), "4 system_meminfo_history");
  EXPECT_EQ(identity(*battery), "5 battery_state_history");
  EXPECT_EQ(identity(*cpu), "6 cpu_utilization_history");
  EXPECT_EQ(identity(gpu), "7 gpu_utilization_history");
  const CpuUsageCollector::CpuStats stats;
  const GpuCollector::GpuUtilStats counters;
  EXPECT_EQ(stats.guestNice + counters.total, 0U);
  static_assert(std::is_default_constructible_v<PsiCollector::RawMetric> &&
                std::is_default_constructible_v<BatteryCollector::RawMetric>);
}

TEST(SurfaceTest, aStateAndABlackBoxStandOnTheirOwn) {
  State state;
  EXPECT_TRUE(!state.isDead && state.deathTime == int64_t{0});
  state.add("key", int64_t{10}, "value");
  EXPECT_EQ(typed<std::optional<std::string>>(std::as_const(state).get("key", false)), "value");
  EXPECT_EQ(std::as_const(state).getAll(false), (Texts{{"key", "value"}}));
  const State::Entry older{10, "a"};
  const State::Entry newer{20, "b"};
  const State::StateComparator comparator;
  EXPECT_TRUE(comparator(older, newer) && comparator(older, older) && !comparator(newer, older));

  BlackBox box;
  box.addProcessState(1, "key", 10, "value");
  box.addGlobalState("telemetry", "id", 10, "session");
  const BlackBox& asked = box;
  typed<std::optional<Texts>>(asked.getAllForPid(1));
  typed<TextsByPid>(asked.getAllProcessStates());
  typed<TextsByNamespace>(asked.getAllGlobalStates());
  EXPECT_EQ(asked.getAllLivePids(), std::vector<int>{1});
  asked.markProcessAsDead(1);
  box.cleanupAllWithTtl(0);
}

class OneState : public LibstatsdWrapper {
 public:
  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    return std::vector<ApplicationState>{{false, "", 7, "screen", "home", 1}};
  }
};

TEST(SurfaceTest, managersOfFeedAndStatesAreMadeByDefaultOrFromTheirParts) {
  typed<Factory<StatsManager>>(&StatsManager::makeDefaultManager);
  typed<Factory<ApplicationStateManager>>(&ApplicationStateManager::makeDefaultManager);
  static_assert(std::has_virtual_destructor_v<ApplicationStateManager>);
  EXPECT_EQ(StatsManagerBuilder().build(), nullptr) << "it was given no atoms";
  typed<std::vector<ApplicationState>>(StatsManager(std::make_unique<OneState>()).fetchReports());
  ApplicationStateManager manager(std::make_unique<BlackBox>(),
                                  std::make_unique<StatsManager>(std::make_unique<OneState>()), 60);
  manager.startCleanupPeriodicTask();
  manager.updateApplicationStateManager();
  typed<std::optional<Texts>>(manager.getApplicationStateForPid(7));
  typed<TextsByPid>(manager.getAllProcessStates());
  typed<TextsByNamespace>(manager.getAllGlobalStates());
  manager.checkForDeadProcesses();
  manager.cleanup();
  manager.stopCleanupPeriodicTask();
}

TEST(SurfaceTest, atomsAreMessagesOfTheVendorsSchema) {
  namespace atoms = vendor::pellux::hardware::PelluxAtoms;
  static_assert(atoms::FUEL_GAUGE_SNAPSHOT_QC == 110000 && atoms::APPLICATION_STATE_DATA == 110010 &&
                atoms::PELLUX_BT_VENDOR_HCI_RERPOT == 110012 &&
                atoms::DROPBOX_ENTRY_DROPPED_EXTENDED == 111038);
  typed<std::string>(atoms::ApplicationStateData().key() + atoms::ApplicationStateData().value());
  typed<std::string>(pellux::telemetry::TelemetrySessionInfo().service_session_id());
}

TEST(SurfaceTest, theServiceAndItsHandlerHaveTheOperationsOfTheInterface) {
  using Handler = DiagnosticsCollectorServiceHandler;
  typed<std::shared_ptr<Handler> (*)()>(&Handler::makeDefaultServiceHandler);
  static_assert(std::is_base_of_v<Observer, Handler> &&
                std::is_base_of_v<Telemetry::DiagnosticsCollectorTelemetry, Handler>);
  typed<Member<Handler, int, PersistableBundle*>>(&Handler::getApplicationStateDataForProcess);
  typed<Member<Handler, PersistableBundle*>>(&Handler::getAllAvailableApplicationStateData);
  typed<Member<Handler, PersistableBundle*>>(&Handler::getSystemContextData);
  typed<Operation<Handler>>(&Handler::startCleanupPeriodicTask);
  typed<Operation<Handler>>(&Handler::stopCleanupPeriodicTask);
  typed<Operation<Handler>>(&Handler::startSystemStateCollectorThread);
  typed<Operation<Handler>>(&Handler::stopSystemStateCollectorThread);

  using Service = DiagnosticsCollectorService;
  typed<Operation<Service>>(&Service::onCreate);
  typed<Operation<Service>>(&Service::onDestroy);
  typed<Member<Service, int32_t, const String16&, PersistableBundle*>>(
      &Service::getApplicationStateDataForProcess);
  const android::sp<Service> service = new Service(std::shared_ptr<Handler>());
  EXPECT_EQ(android::interface_cast<IDiagnosticsCollectorService>(android::sp<android::IBinder>(service)),
            service);
  using Notifier = DiagnosticsNotificationService;
  static_assert(std::is_base_of_v<Producer, Notifier> &&
                std::is_constructible_v<Notifier, std::vector<std::shared_ptr<Observer>>>);
  typed<void (Observer::*)(int, std::optional<Texts>)>(&Observer::onEvent);
  typed<Member<Notifier, IDiagnosticsNotificationEventCode, const PersistableBundle&>>(
      &Notifier::notifySystemEvent);
  typed<Operation<Torv::OS::ServiceHost>>(&Torv::OS::ServiceHost::startThreadPool);
}

}  // namespace
