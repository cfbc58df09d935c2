// Reports and look-ups if the SDK's module is missing, empty, or refuses everything. The program runs once
// for each kind of module, which it finds through LD_LIBRARY_PATH: TORV_TEST_MODULE says which.
#include <cstdlib>

#include <gtest/gtest.h>

#include "configuration/DefaultConfiguration.h"
#include "configuration/PreferencesConfiguration.h"
#include "support/LogCapture.h"
#include "telemetry/DiagnosticsCollectorTelemetry.h"

namespace {

using namespace Torv::OS::Diagnostics::Telemetry;
using Torv::DefaultConfiguration;
using Torv::PreferencesConfiguration;

const bool kModuleIsMissing = getenv("TORV_TEST_MODULE") == nullptr;

TEST(ModuleFaultTest, theFirstReportEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that has not opened the module yet
  DiagnosticsCollectorTelemetry telemetry(true);
  EXPECT_EXIT(
      telemetry.reportDefaultEvent(EventName::GetAllStart, EventType::Start, EventFlow::Collector),
      testing::KilledBySignal(SIGABRT),
      "The telemetry SDK is missing or created no event for get_all_available_application_state_data_start");
}

TEST(ModuleFaultTest, lookupsGoToTheNextLayer) {
  const test::LogCapture log;
  for (const unsigned short flags : {0, 1, 2, 3, 4, 5, 6, 7}) {
    PreferencesConfiguration configuration(std::make_unique<DefaultConfiguration>(), flags);
    EXPECT_EQ(configuration.getString("crash-reporter-user-agent"), "pellux/os");
    EXPECT_EQ(configuration.getUint("crash-reporter-upload-to-server-max-retry-time-delay"), 3600);
    EXPECT_EQ(configuration.getInt("crash-reporter-logcat-tail-seconds"), 120);
    EXPECT_TRUE(configuration.getBool("crash-reporter-logcat-enable"));
    EXPECT_TRUE(configuration.getLocalStrMap("crash-reporter-error-extra-data").empty());
  }
  EXPECT_EQ(log.count("OSSDK module 'libossdk.pellux.so' not found"), kModuleIsMissing ? 1u : 0u);
  EXPECT_TRUE(log.has(ANDROID_LOG_DEBUG, "OsSdkLoader", "OSSDK loading module 'libossdk.pellux.so'"));
}

}  // namespace
