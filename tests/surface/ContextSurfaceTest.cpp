// The public names of telemetry, tasks, configuration, system context and collectors, used the way that other
// code uses them. Most of it is checked by compiling, in the dialect of the device's toolchain.
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

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
#include "support/TempDir.h"
#include "sysprop/SharedOsServicesProperties.h"
#include "systemcontext/SystemContextManager.h"
#include "systemstatecollector/SystemStateCollectorManager.h"
#include "telemetry/DiagnosticsCollectorTelemetry.h"

namespace {

using namespace Torv::OS::Diagnostics;  // NOLINT(google-build-using-namespace): as the service's own sources
                                        // do
using Map = std::unordered_map<std::string, std::string>;

template <typename Expected, typename Actual>
Actual typed(Actual&& actual) {
  static_assert(std::is_same_v<Expected, std::decay_t<Actual>>);
  return std::forward<Actual>(actual);
}

TEST(ContextSurfaceTest, anEventRecordOwnsItsTexts) {
  namespace logger = dobrel::arvr::structuredlogger::kerno_diagnostics_collector_events;
  logger::KernoDiagnosticsCollectorEventsEvent event;
  event.eventType =
      std::string("a text longer than any that fits into the object, ") + "gone at the semicolon";
  event.processId = typed<int64_t>(int64_t{1});
  logger::KernoDiagnosticsCollectorEventsEventLogger empty(nullptr);
  EXPECT_EQ(empty.createTelemetryEvent(event), nullptr);
  EXPECT_FALSE(empty.record(nullptr, false));
  EXPECT_EQ(logger::KernoDiagnosticsCollectorEventsEventLogger::createSharedPtr(nullptr), nullptr);
  EXPECT_EQ(event.eventType.substr(50), "gone at the semicolon");
}

TEST(ContextSurfaceTest, aReporterCanBeDerivedFrom) {
  class Counting : public Telemetry::DiagnosticsCollectorTelemetry {
   public:
    using DiagnosticsCollectorTelemetry::DiagnosticsCollectorTelemetry;
    bool reportEvent(Telemetry::EventName, Telemetry::EventType, Telemetry::EventFlow, std::optional<int> pid,
                     std::optional<int>, std::optional<std::string> reason,
                     std::optional<std::string>) override {
      seen += std::to_string(pid.value_or(0)) + reason.value_or("-") + " ";
      return true;
    }
    std::string seen;
  };
  Counting counting(true);
  const auto name = static_cast<Telemetry::EventName>(12);
  EXPECT_TRUE(counting.reportDefaultEvent(name, static_cast<Telemetry::EventType>(1),
                                          static_cast<Telemetry::EventFlow>(0)));
  counting.reportDefaultEventWithPid(name, Telemetry::EventType::Start, Telemetry::EventFlow::Collector, 7);
  counting.reportDefaultErrorEvent(name, Telemetry::EventType::Error, Telemetry::EventFlow::Collector, "why");
  EXPECT_EQ(counting.seen, "0- 7- 0why ");
}

TEST(ContextSurfaceTest, aTaskTakesAPeriodANameAndACallable) {
  Torv::OS::PeriodicTask task(std::chrono::seconds(30), "name", std::function<void()>([] {}));
  task.start(false);
  task.start(true);
  task.stop(true);
  task.stop(false);
}

TEST(ContextSurfaceTest, theLayersOfTheConfigurationFormAChain) {
  const test::TempDir runtime;
  const test::ScopedEnv environment("TORV_RUNTIME_DIR", runtime.path());
  Json::Value root(Json::objectValue);
  root["crash-reporter-logcat-tail-seconds"] = 30;
  auto preferences = std::make_unique<Torv::PreferencesConfiguration>(
      std::make_unique<Torv::DefaultConfiguration>(), static_cast<unsigned short>(1));
  preferences->setupPreferencesStoreManager();
  typed<std::shared_ptr<OSSDK::Preferences::v4::IPreferencesManager>>(
      preferences->getPreferencesStoreManager());
  const std::shared_ptr<Torv::OverridableConfiguration> chain =
      std::make_shared<Torv::OverridableConfiguration>(
          std::make_unique<Torv::JSONConfiguration>(root, std::move(preferences)));
  Torv::IConfiguration& configuration = *chain;
  EXPECT_EQ(typed<std::string>(configuration.getString("crash-reporter-user-agent")), "pellux/os");
  EXPECT_EQ(typed<unsigned short>(configuration.getUint("unknown")), 0);
  EXPECT_EQ(typed<int>(configuration.getInt("crash-reporter-logcat-tail-seconds")), 30);
  EXPECT_FALSE(typed<bool>(configuration.getBool("crash-reporter-url")));
  EXPECT_TRUE((typed<std::map<std::string, std::string>>(
                   configuration.getLocalStrMap("crash-reporter-error-extra-data")))
                  .empty());
  configuration.registerPreferencesChangeCallback([](void*) {});
  configuration.registerPreferencesChangeCallback([] {}, "key");
  configuration.runCallbackFunctions();
  EXPECT_EQ(configuration.getCallbackSize(), 0U);
}

TEST(ContextSurfaceTest, aContextManagerCanBeDerivedFromAndParsesTagsIntoBothKindsOfSet) {
  static_assert(std::is_same_v<decltype(&SystemContextManager::makeDefaultManager),
                               std::unique_ptr<SystemContextManager> (*)()>);
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
  EXPECT_EQ(typed<Map>(manager.getSystemContext()),
            (Map{{"build_tags", "user,pebblor_id:1"}, {"build_fingerprint", "print"}, {"pebblor_id", "1"}}));

  Map values;
  std::set<std::string> sorted;
  std::unordered_set<std::string> hashed;
  EXPECT_TRUE(SystemContextManager::parseBuildTags("a:b:c,d", sorted, values));
  EXPECT_TRUE(SystemContextManager::parseBuildTags(std::string("d"), hashed, values));
  EXPECT_EQ(sorted.size() + hashed.size(), 2U);
  EXPECT_EQ(values, (Map{{"a", "b:c"}}));
}

TEST(ContextSurfaceTest, flagsHaveThreeStates) {
  namespace flags = pellux::sysprop::SharedOsServicesProperties;
  typed<std::optional<bool>>(flags::crash_report_collect_logs());
  typed<std::optional<bool>>(flags::crash_report_extended_logs_enabled());
  typed<std::optional<bool>>(flags::enable_diagnostics_collector_correlation());
}

TEST(ContextSurfaceTest, aRingAndAReportStandOnTheirOwn) {
  CircularBuffer<int> ring(60);
  for (int i = 0; i < 61; ++i) ring.reserve() = i;
  std::vector<int> held;
  EXPECT_EQ(typed<uint64_t>(ring.readAll(std::back_inserter(held))), 60U);
  EXPECT_EQ(held.front(), 1);
  Json::Value report;
  SystemStateCollector::Utils::addTimeSeriesDataToJsonReport(report, uint64_t{5}, Json::Value(1));
  EXPECT_EQ(report["time_series"][0]["dt_ms"].asUInt64(), 5U);
}

// A collector of somebody else's, in a manager of its own.
class Other : public SystemStateCollector {
 public:
  Other() : SystemStateCollector(SystemStateCollectorConfig(60, 1)) {}
  uint8_t getId() const override { return 200; }
  std::string getDescription() const override { return "other"; }
  bool collectSystemStateData() override { return true; }
  std::unique_ptr<Map> dumpSystemStateHistory() override {
    return std::make_unique<Map>(Map{{"other_history", "{}"}});
  }
};

TEST(ContextSurfaceTest, aManagerIsDefaultConstructible) {
  SystemStateCollectorManager manager;
  manager.addCollector(std::make_unique<Other>());
  manager.addCollector(std::make_unique<Other>());
  EXPECT_EQ(typed<size_t>(manager.collectorCount()), 1U);
  manager.startCollectorThread();
  manager.stopCollectorThread();
  manager.pollCollectors();
  EXPECT_EQ(*typed<std::unique_ptr<Map>>(manager.dumpSystemStateHistory()), (Map{{"other_history", "{}"}}));
}

// What every collector answers, made from a stream or by its factory.
std::string identity(SystemStateCollector& collector) {
  EXPECT_TRUE(collector.collectSystemStateData());
  EXPECT_EQ(collector.getMaxSamples(), 60U);
  const std::unique_ptr<Map> history = collector.dumpSystemStateHistory();
  EXPECT_EQ(history->size(), 1U);
  EXPECT_FALSE(collector.getDescription().empty());
  return std::to_string(collector.getId()) + " " + history->begin()->first;
}

TEST(ContextSurfaceTest, collectorsAreMadeFromAConfigurationAndAStream) {
  const SystemStateCollectorConfig config(60, 2);
  PsiCpuCollector pressure(config, std::ifstream("/proc/stat"));  // any text will do
  SystemMemInfoCollector memory(config, std::ifstream("/proc/meminfo"));
  GpuCollector gpu(config, std::ifstream("/proc/stat"));
  EXPECT_EQ(identity(pressure), "1 psi_cpu_history");
  EXPECT_EQ(identity(memory), "4 system_meminfo_history");
  EXPECT_EQ(identity(gpu), "7 gpu_utilization_history");

  const std::unique_ptr<CpuUsageCollector> cpu = CpuUsageCollector::init(config);
  ASSERT_NE(cpu, nullptr);
  EXPECT_EQ(identity(*cpu), "6 cpu_utilization_history");
  typed<std::unique_ptr<PsiMemCollector>>(PsiMemCollector::init(config));
  typed<std::unique_ptr<PsiIoCollector>>(PsiIoCollector::init(config));
  const CpuUsageCollector::CpuStats stats;
  const GpuCollector::GpuUtilStats counters;
  EXPECT_EQ(stats.guestNice + counters.total, 0U);
  static_assert(std::is_default_constructible_v<PsiCollector::RawMetric> &&
                std::is_default_constructible_v<BatteryCollector::RawMetric>);
}

TEST(ContextSurfaceTest, theBatterysFactoryTakesTheConfigurationAlone) {
  const test::TempDir root;
  root.write("sys/class/power_supply/battery/charge_counter", "3000");
  root.write("sys/class/power_supply/battery/charge_full", "4000");
  const test::ScopedEnv environment("TORV_DEVICE_ROOT", root.path());
  const std::unique_ptr<BatteryCollector> battery = BatteryCollector::init(SystemStateCollectorConfig(60, 2));
  ASSERT_NE(battery, nullptr);
  EXPECT_EQ(identity(*battery), "5 battery_state_history");
  EXPECT_NE(battery->dumpSystemStateHistory()->at("battery_state_history").find("75.0"), std::string::npos);
}

}  // namespace
