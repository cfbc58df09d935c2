#include "systemcontext/SystemContextManager.h"

#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "configuration/DefaultConfiguration.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::Contains;
using testing::StartsWith;
using Values = std::unordered_map<std::string, std::string>;

TEST(BuildTags, AreFlagsAndNamedValuesAndNothingWithoutAName) {
  const std::pair<std::string, std::set<std::string>> cases[] = {
      {"release-keys", {"release-keys"}},
      {"user,a:1,user,b:", {"user", "a=1", "b="}},
      {"a:b:c", {"a=b:c"}},
      {"a::,:b:c", {"a=:"}},
      {"a:1,a:2,a", {"a=2", "a"}},
      {" a : 1 ,\tb", {" a = 1 ", "\tb"}},
      {std::string(1 << 16, ',') + "last", {"last"}},
      {",:,:a,,::b,", {}},
      {"", {}},
  };
  for (const auto& [tags, expected] : cases) {
    std::unordered_set<std::string> flags;
    Values values;
    EXPECT_TRUE(SystemContextManager::parseBuildTags(tags, flags, values));
    std::set<std::string> all(flags.begin(), flags.end());
    for (const auto& [name, value] : values) all.insert(name + "=" + value);
    EXPECT_EQ(all, expected);
  }
}

// The manager of a system with these properties.
class Given : public SystemContextManager {
 public:
  using SystemContextManager::SystemContextManager;
  std::string getRawBuildTags() override { return tags; }
  std::string getRawBuildFingerprint() override { return "kerno/a:12/b:user"; }
  std::string tags;
};

TEST(SystemContextManager, ReadsReviewAndCiFromTheTagsAndTestRunsFromTheConfiguration) {
  const auto configuration =
      std::make_shared<Torv::OverridableConfiguration>(std::make_unique<Torv::DefaultConfiguration>());
  Given manager(configuration, nullptr);
  Values expected{{"build_tags", ""}, {"build_fingerprint", "kerno/a:12/b:user"}};
  EXPECT_EQ(manager.getSystemContext(), expected);

  manager.tags = "release-keys,quillet_diff_number:D123,quillet_version_number:7,pebblor_id:1,pebblor_id:99";
  configuration->setString("vambrik-automation-session-context-json", R"({"session":1})");
  configuration->setString("vambrik-automation-test-context-json", "");
  expected["build_tags"] = manager.tags;
  expected["ci_session_context"] = R"({"session":1})";
  Values reviewed = expected;
  reviewed.merge(
      Values{{"quillet_diff_number", "D123"}, {"quillet_diff_version", "7"}, {"pebblor_id", "99"}});
  EXPECT_EQ(manager.getSystemContext(), reviewed);

  // A tag by the name of the context key is no source of it, and all is read anew.
  manager.tags = "quillet_diff_version:8,pebblor_id:";
  configuration->setString("vambrik-automation-test-context-json", "{}");
  expected["build_tags"] = manager.tags;
  expected["pebblor_id"] = "";
  expected["ci_test_context"] = "{}";
  EXPECT_EQ(manager.getSystemContext(), expected);
}

// The only test that may build the configuration chain, of which a process has one.
TEST(SystemContextManager, JoinsFilePreferencesPropertiesAndHistories) {
  constexpr char kConfiguration[] = "system_ext/etc/torv_crashreporter.conf";
  constexpr char kDisabled[] = "System state collector manager disabled via ADC\n";
  const test::TempDir device;
  const test::TempDir runtime;
  const test::ScopedEnv deviceRoot("TORV_DEVICE_ROOT", device.path());
  const test::ScopedEnv runtimeDir("TORV_RUNTIME_DIR", runtime.path());
  test::LogCapture log;
  const auto makeLoudly = [] {
    __android_log_set_logger(&__android_log_stderr_logger);
    SystemContextManager::makeDefaultManager();
  };
  EXPECT_DEATH(makeLoudly(), "Unable to load service configuration: /system_ext/etc/torv_crashreporter.conf");

  device.write(kConfiguration, R"({"vambrik-automation-session-context-json": "of the file"})");
  runtime.write("preferences.json", R"({"vambrik-automation-session-context-json": "not this",
                                        "vambrik-automation-test-context-json": "of the store"})");
  const std::string tags = "user,pebblor_id:5," + std::string(200, 'x');
  const std::string properties = "ro.system.build.tags=" + tags + "\nro.build.fingerprint=kerno/a\n";
  runtime.write("properties", properties);
  Values expected{{"build_tags", tags},
                  {"build_fingerprint", "kerno/a"},
                  {"pebblor_id", "5"},
                  {"ci_session_context", "of the file"},
                  {"ci_test_context", "of the store"}};
  const auto quiet = SystemContextManager::makeDefaultManager();
  quiet->startSystemStateCollectorThread();
  EXPECT_EQ(quiet->getSystemContext(), expected);
  quiet->stopSystemStateCollectorThread();
  EXPECT_EQ(log.count(kDisabled), 1U);
  runtime.write("preferences.json", R"({"vambrik-automation-test-context-json": "changed"})");
  expected["ci_test_context"] = "changed";
  EXPECT_EQ(quiet->getSystemContext(), expected);

  // The flag counts when a manager is made; the chain of the first one stays.
  device.write(kConfiguration, "{}");
  runtime.write("properties", properties +
                                  "persist.device_config.pellux_shared_os_services."
                                  "oscontrol_enable_diagnostic_collector_service_corr=true\n");
  EXPECT_EQ(SystemContextManager::makeDefaultManager()->getSystemContext(), expected);
  EXPECT_EQ(log.count("Failed to create system state collector manager\n"), 1U);  // a device without sources
  EXPECT_EQ(log.count(kDisabled), 1U);

  device.write("proc/meminfo", "MemTotal: 2048 kB\nMemFree: 1024 kB\nMemAvailable: 1536 kB\n");
  Values context = SystemContextManager::makeDefaultManager()->getSystemContext();
  EXPECT_EQ(context.erase("system_meminfo_history"), 1U);
  EXPECT_EQ(context.count("psi_cpu_history"), 0U);
  EXPECT_EQ(context["ci_session_context"], "of the file");
  EXPECT_THAT(log.texts(ANDROID_LOG_DEBUG),
              Contains(StartsWith("System state history: system_meminfo_history, report size ")));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
