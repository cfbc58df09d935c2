#include "sysprop/SharedOsServicesProperties.h"

#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace pellux::sysprop::SharedOsServicesProperties {
namespace {

TEST(PropertyFlagsTest, readEachItsOwnPropertyAsTrueFalseOrUnset) {
  const test::HostDir host;
  EXPECT_EQ(enable_diagnostics_collector_correlation(), std::nullopt);  // no property area at all
  const std::pair<std::vector<const char*>, std::optional<bool>> cases[] = {
      {{"1", "true", "TRUE"}, true},
      {{"0", "False"}, false},
      {{"", "2", "yes", "true1", "01", " 1"}, std::nullopt}};
  const std::string start = "persist.device_config.pellux_shared_os_services.";
  const std::string correlation = start + "oscontrol_enable_diagnostic_collector_service_corr";
  const std::string others = start + "tvk_crash_report_collect_logs=1\n" + correlation + "x=1\n" + start +
                             "crash_report_extended_logs_enabled=false\n";
  for (const auto& [texts, expected] : cases) {
    for (const char* text : texts) {
      host.write("properties", others + correlation + "=" + text + "\n");  // and each is read anew
      EXPECT_EQ(enable_diagnostics_collector_correlation(), expected) << text;
    }
  }
  EXPECT_EQ(crash_report_collect_logs(), true);
  EXPECT_EQ(crash_report_extended_logs_enabled(), false);
}

}  // namespace
}  // namespace pellux::sysprop::SharedOsServicesProperties
