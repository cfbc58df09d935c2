// From the configuration file, the preferences store and the properties of a runtime directory to the
// context.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "support/TempDir.h"
#include "systemcontext/SystemContextManager.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::Contains;
using testing::Key;
using testing::Not;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr char kConfiguration[] = "system_ext/etc/torv_crashreporter.conf";
constexpr char kCorrelation[] =
    "persist.device_config.pellux_shared_os_services.oscontrol_enable_diagnostic_collector_service_corr=";
constexpr char kDisabled[] = "System state collector manager disabled via ADC\n";

TEST(SystemContextChain, JoinsFilePreferencesPropertiesAndHistories) {
  const test::TempDir device;
  const test::TempDir runtime;
  const test::ScopedEnv deviceRoot("TORV_DEVICE_ROOT", device.path());
  const test::ScopedEnv runtimeDir("TORV_RUNTIME_DIR", runtime.path());
  test::LogCapture log;

  EXPECT_DEATH(
      {
        __android_log_set_logger(&__android_log_stderr_logger);
        SystemContextManager::makeDefaultManager();
      },
      "Unable to load service configuration: /system_ext/etc/torv_crashreporter.conf");

  device.write(kConfiguration, R"({"vambrik-automation-session-context-json": "of the file"})");
  runtime.write("preferences.json", R"({"vambrik-automation-session-context-json": "not this",
                                        "vambrik-automation-test-context-json": "of the store"})");
  const std::string properties =
      "ro.system.build.tags=user,pebblor_id:5," + std::string(200, 'x') + "\nro.build.fingerprint=kerno/a\n";
  runtime.write("properties", properties);
  const auto staticContext = [](const std::string& testContext) {
    return UnorderedElementsAre(Pair("build_tags", "user,pebblor_id:5," + std::string(200, 'x')),
                                Pair("build_fingerprint", "kerno/a"), Pair("pebblor_id", "5"),
                                Pair("ci_session_context", "of the file"),
                                Pair("ci_test_context", testContext));
  };
  {
    const auto manager = SystemContextManager::makeDefaultManager();
    EXPECT_THAT(manager->getSystemContext(), staticContext("of the store"));
    EXPECT_EQ(log.count(kDisabled), 1U);
    runtime.write("preferences.json", R"({"vambrik-automation-test-context-json": "of the store, changed"})");
    EXPECT_THAT(manager->getSystemContext(), staticContext("of the store, changed"));
  }

  // The flag counts when a manager is made; the chain of the first one stays.
  device.write(kConfiguration, "{}");
  runtime.write("properties", properties + kCorrelation + "true\n");
  EXPECT_THAT(SystemContextManager::makeDefaultManager()->getSystemContext(),
              staticContext("of the store, changed"));
  EXPECT_EQ(log.count("Failed to create system state collector manager\n"), 1U);  // a device without sources
  EXPECT_EQ(log.count(kDisabled), 1U);

  device.write("proc/meminfo", "MemTotal: 2048 kB\nMemFree: 1024 kB\nMemAvailable: 1536 kB\n");
  const auto collecting = SystemContextManager::makeDefaultManager();
  EXPECT_THAT(collecting->getSystemContext(), Contains(Key("system_meminfo_history")));
  EXPECT_THAT(collecting->getSystemContext(), Not(Contains(Key("psi_cpu_history"))));
  EXPECT_THAT(collecting->getSystemContext(), Contains(Pair("ci_session_context", "of the file")));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
