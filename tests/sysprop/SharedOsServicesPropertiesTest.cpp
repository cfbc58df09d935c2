#include "sysprop/SharedOsServicesProperties.h"

#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace pellux::sysprop::SharedOsServicesProperties {
namespace {

const std::string kNamespace = "persist.device_config.pellux_shared_os_services.";
const std::string kCorrelation = kNamespace + "oscontrol_enable_diagnostic_collector_service_corr";

class PropertyFlagsTest : public testing::Test {
 protected:
  test::TempDir mRuntime;
  test::ScopedEnv mEnv{"TORV_RUNTIME_DIR", mRuntime.path()};
};

TEST_F(PropertyFlagsTest, KnowTrueFalseAndUnset) {
  EXPECT_EQ(enable_diagnostics_collector_correlation(), std::nullopt);  // no property area at all
  const std::pair<const char*, std::optional<bool>> cases[] = {
      {"1", true},          {"true", true},        {"TRUE", true},
      {"0", false},         {"False", false},      {"", std::nullopt},
      {"2", std::nullopt},  {"yes", std::nullopt}, {"true1", std::nullopt},
      {"01", std::nullopt}, {" 1", std::nullopt},
  };
  for (const auto& [text, expected] : cases) {
    mRuntime.write("properties", kCorrelation + "=" + text + "\n");  // and each is read anew
    EXPECT_EQ(enable_diagnostics_collector_correlation(), expected) << text;
  }
}

TEST_F(PropertyFlagsTest, EachReadItsOwnProperty) {
  mRuntime.write("properties", kNamespace + "tvk_crash_report_collect_logs=1\n" + kNamespace +
                                   "crash_report_extended_logs_enabled=false\n" + kCorrelation + "x=1\n");
  EXPECT_EQ(crash_report_collect_logs(), true);
  EXPECT_EQ(crash_report_extended_logs_enabled(), false);
  EXPECT_EQ(enable_diagnostics_collector_correlation(), std::nullopt);
}

}  // namespace
}  // namespace pellux::sysprop::SharedOsServicesProperties
