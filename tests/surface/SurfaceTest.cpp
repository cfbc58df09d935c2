// The public names of the service, each used once as other code uses it, in the dialect of the device's
// toolchain. Most of it is checked by compiling; what the names do is checked by the tests of their folders.
#include <fstream>

#include <gtest/gtest.h>

#include "BatteryCollector.h"
#include "CpuUsageCollector.h"
#include "GpuCollector.h"
#include "KernoDiagnosticsCollectorEventsEventLogger.h"
#include "PsiCollector.h"
#include "SystemMemInfoCollector.h"
#include "configuration/DefaultConfiguration.h"
#include "configuration/JSONConfiguration.h"
#include "configuration/PreferencesConfiguration.h"
#include "service/DiagnosticsCollectorService.h"
#include "service/DiagnosticsNotificationService.h"
#include "stats/StatsManagerBuilder.h"
#include "support/TempDir.h"
#include "vendor/velmor/packages/services/StatsCollector/src/pelluxatoms.pb.h"

namespace {

using namespace Torv::OS::Diagnostics;  // NOLINT(google-build-using-namespace): as the service's own sources
using android::os::PersistableBundle;
using Texts = std::unordered_map<std::string, std::string>;

// Compiles only if the value has this type, or if the class has a member function or a factory of this type.
template <typename Expected, typename Actual>
Actual typed(Actual&& actual) {
  static_assert(std::is_same_v<Expected, std::decay_t<Actual>>);
  return std::forward<Actual>(actual);
}
template <typename Class, typename... Arguments>
using Member = android::binder::Status (Class::*)(Arguments..., PersistableBundle*);
template <typename Class>
using Factory = std::unique_ptr<Class> (*)();
template <typename Class>
using Operations = std::initializer_list<void (Class::*)()>;

TEST(SurfaceTest, anEventRecordOwnsItsTexts) {
  namespace logger = dobrel::arvr::structuredlogger::kerno_diagnostics_collector_events;
  logger::KernoDiagnosticsCollectorEventsEvent event;
  event.eventType = std::string("a text longer than any that fits into the object, ") + "a temporary";
  event.processId = typed<int64_t>(int64_t{1});
  logger::KernoDiagnosticsCollectorEventsEventLogger empty(nullptr);
  EXPECT_EQ(empty.createTelemetryEvent(event), nullptr);
  EXPECT_FALSE(empty.record(nullptr, false));
  EXPECT_EQ(logger::KernoDiagnosticsCollectorEventsEventLogger::createSharedPtr(nullptr), nullptr);
  EXPECT_EQ(event.eventType.substr(50), "a temporary");
}

TEST(SurfaceTest, configurationLayersFormAChain) {
  const test::HostDir host;
  auto preferences = std::make_unique<Torv::PreferencesConfiguration>(
      std::make_unique<Torv::DefaultConfiguration>(), static_cast<unsigned short>(1));
  preferences->setupPreferencesStoreManager();
  typed<std::shared_ptr<OSSDK::Preferences::v4::IPreferencesManager>>(
      preferences->getPreferencesStoreManager());
  Torv::OverridableConfiguration chain(
      std::make_unique<Torv::JSONConfiguration>(Json::Value(Json::objectValue), std::move(preferences)));
  Torv::IConfiguration& configuration = chain;
  EXPECT_EQ(typed<std::string>(configuration.getString("crash-reporter-user-agent")), "pellux/os");
  // These have a default of another type, which is no answer.
  EXPECT_EQ(typed<unsigned short>(configuration.getUint("crash-reporter-logcat-tail-seconds")), 0);
  EXPECT_EQ(typed<int>(configuration.getInt("crash-reporter-url")), -1);
  EXPECT_FALSE(typed<bool>(configuration.getBool("crash-reporter-url")));
  using Map = std::map<std::string, std::string>;
  EXPECT_EQ(typed<Map>(configuration.getLocalStrMap("crash-reporter-url")), Map());
  configuration.registerPreferencesChangeCallback([](void*) {});
  configuration.registerPreferencesChangeCallback([] {}, "key");
  configuration.runCallbackFunctions();
  EXPECT_EQ(configuration.getCallbackSize(), 0U);
}

TEST(SurfaceTest, aContextManagerCanBeDerivedFrom) {
  typed<Factory<SystemContextManager>>(&SystemContextManager::makeDefaultManager);
  struct Fixed : SystemContextManager {
    using SystemContextManager::SystemContextManager;
    std::string getRawBuildTags() override { return "user,pebblor_id:1"; }
    std::string getRawBuildFingerprint() override { return "print"; }
  };
  Fixed manager(
      std::make_shared<Torv::OverridableConfiguration>(std::make_unique<Torv::DefaultConfiguration>()),
      nullptr);
  EXPECT_EQ(
      typed<Texts>(manager.getSystemContext()),
      (Texts{{"build_tags", "user,pebblor_id:1"}, {"build_fingerprint", "print"}, {"pebblor_id", "1"}}));
}

TEST(SurfaceTest, collectorsAreMadeFromAConfigurationAndAStreamOrByTheirFactory) {
  const test::HostDir host;
  host.write("sys/class/power_supply/battery/charge_counter", "3000");
  host.write("sys/class/power_supply/battery/charge_full", "3000");
  const std::string file = host.write("proc/stat", "cpu 1 2 3 4\n");
  const SystemStateCollectorConfig config(60, 2);
  const auto stream = [&file] { return std::ifstream(file); };  // any text will do
  std::unique_ptr<SystemStateCollector> collectors[] = {
      std::make_unique<PsiCpuCollector>(config, stream()),
      std::make_unique<PsiMemCollector>(config, stream()),
      std::make_unique<PsiIoCollector>(config, stream()),
      std::make_unique<SystemMemInfoCollector>(config, stream()),
      BatteryCollector::init(config),
      CpuUsageCollector::init(config),
      std::make_unique<GpuCollector>(config, stream())};
  SystemStateCollectorManager manager;
  int id = 0;
  for (auto& collector : collectors) {
    ASSERT_NE(collector, nullptr);
    EXPECT_EQ(typed<uint8_t>(collector->getId()), ++id);
    EXPECT_EQ(typed<uint32_t>(collector->getMaxSamples()), 60U);
    EXPECT_FALSE(typed<std::string>(collector->getDescription()).empty());
    EXPECT_EQ(typed<std::unique_ptr<Texts>>(collector->dumpSystemStateHistory())->size(), 1U);
    manager.addCollector(std::move(collector));
  }
  EXPECT_EQ(typed<size_t>(manager.collectorCount()), 7U);
  EXPECT_EQ(typed<std::unique_ptr<Texts>>(manager.dumpSystemStateHistory())->size(), 7U);
  EXPECT_EQ(CpuUsageCollector::CpuStats().guestNice + GpuCollector::GpuUtilStats().total, 0U);
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

  const BlackBox box;
  typed<std::optional<Texts>>(box.getAllForPid(1));
  typed<std::unordered_map<int, Texts>>(box.getAllProcessStates());
  typed<std::unordered_map<std::string, Texts>>(box.getAllGlobalStates());
  typed<std::vector<int>>(box.getAllLivePids());
  box.markProcessAsDead(1);
}

TEST(SurfaceTest, managersAndTheHandlerAreMadeByDefaultAndHaveTheOperationsOfTheInterface) {
  typed<Factory<StatsManager>>(&StatsManager::makeDefaultManager);
  EXPECT_EQ(StatsManagerBuilder().build(), nullptr) << "it was given no atoms";
  using Manager = ApplicationStateManager;
  typed<Factory<Manager>>(&Manager::makeDefaultManager);
  (void)Operations<Manager>{&Manager::startCleanupPeriodicTask, &Manager::updateApplicationStateManager,
                            &Manager::checkForDeadProcesses, &Manager::cleanup,
                            &Manager::stopCleanupPeriodicTask};
  using Handler = DiagnosticsCollectorServiceHandler;
  typed<std::shared_ptr<Handler> (*)()>(&Handler::makeDefaultServiceHandler);
  static_assert(std::is_base_of_v<Observer, Handler> &&
                std::is_base_of_v<Telemetry::DiagnosticsCollectorTelemetry, Handler> &&
                std::is_base_of_v<Producer, DiagnosticsNotificationService>);
  typed<Member<Handler, int>>(&Handler::getApplicationStateDataForProcess);
  typed<Member<Handler>>(&Handler::getAllAvailableApplicationStateData);
  typed<Member<Handler>>(&Handler::getSystemContextData);
  (void)Operations<Handler>{&Handler::startCleanupPeriodicTask, &Handler::stopCleanupPeriodicTask,
                            &Handler::startSystemStateCollectorThread,
                            &Handler::stopSystemStateCollectorThread};
  using Service = DiagnosticsCollectorService;
  (void)Operations<Service>{&Service::onCreate, &Service::onDestroy};
}

TEST(SurfaceTest, atomsAreMessagesOfTheVendorsSchema) {
  namespace atoms = vendor::pellux::hardware::PelluxAtoms;
  static_assert(atoms::FUEL_GAUGE_SNAPSHOT_QC == 110000 && atoms::PELLUX_BT_VENDOR_HCI_RERPOT == 110012 &&
                atoms::DROPBOX_ENTRY_DROPPED_EXTENDED == 111038);
}

}  // namespace
