#include "sysprop/SharedOsServicesProperties.h"

#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace pellux::sysprop::SharedOsServicesProperties {
namespace {

TEST(PropertyFlagsTest, readEachItsOwnPropertyAsTrueFalseOrUnset) {
  const test::TempDir runtime;
  const test::ScopedEnv env("TORV_RUNTIME_DIR", runtime.path());
  EXPECT_EQ(enable_diagnostics_collector_correlation(), std::nullopt);  // no property area at all
  const std::pair<std::string, std::optional<bool>> cases[] = {
      {"1", true},          {"true", true},        {"TRUE", true},
      {"0", false},         {"False", false},      {"", std::nullopt},
      {"2", std::nullopt},  {"yes", std::nullopt}, {"true1", std::nullopt},
      {"01", std::nullopt}, {" 1", std::nullopt},
  };
  const std::string start = "persist.device_config.pellux_shared_os_services.";
  const std::string correlation = start + "oscontrol_enable_diagnostic_collector_service_corr";
  const std::string others = start + "tvk_crash_report_collect_logs=1\n" + correlation + "x=1\n" + start +
                             "crash_report_extended_logs_enabled=false\n";
  for (const auto& [text, expected] : cases) {
    runtime.write("properties", others + correlation + "=" + text + "\n");  // and each is read anew
    EXPECT_EQ(enable_diagnostics_collector_correlation(), expected) << text;
  }
  EXPECT_EQ(crash_report_collect_logs(), true);
  EXPECT_EQ(crash_report_extended_logs_enabled(), false);
}

}  // namespace
}  // namespace pellux::sysprop::SharedOsServicesProperties
