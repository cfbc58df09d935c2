#include "systemcontext/SystemContextManager.h"

#include <gmock/gmock.h>

#include "configuration/DefaultConfiguration.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace Torv::OS::Diagnostics {
namespace {

using Base::StringMap;

TEST(BuildTagsTest, areFlagsAndNamedValuesAndNothingWithoutAName) {
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
    std::set<std::string> all;
    StringMap values;
    EXPECT_TRUE(SystemContextManager::parseBuildTags(tags, flags, values));
    EXPECT_TRUE(SystemContextManager::parseBuildTags(tags, all, values));
    EXPECT_EQ(std::set<std::string>(flags.begin(), flags.end()), all);
    for (const auto& [name, value] : values) all.insert(std::string(name).append("=").append(value));
    EXPECT_EQ(all, expected);
  }
}

// A manager whose only history has the name of a context key.
struct NamesakeHistory : SystemStateCollectorManager {
  std::unique_ptr<StringMap> dumpSystemStateHistory() override {
    return std::make_unique<StringMap>(StringMap{{"build_tags", "a history"}, {"other", "too"}});
  }
};

TEST(SystemContextManagerTest, aHistoryNeverReplacesAnEntryOfItsName) {
  auto configuration = std::make_shared<OverridableConfiguration>(std::make_unique<DefaultConfiguration>());
  SystemContextManager manager(std::move(configuration), std::make_unique<NamesakeHistory>());
  const StringMap context = manager.getSystemContext();
  EXPECT_EQ(context.at("build_tags"), manager.getRawBuildTags());
  EXPECT_EQ(context.at("other"), "too");
}

// The only test that may build the configuration chain, because a process builds it once.
TEST(SystemContextManagerTest, joinsFilePreferencesPropertiesAndHistories) {
  constexpr char kConfiguration[] = "system_ext/etc/torv_crashreporter.conf";
  constexpr char kDisabled[] = "System state collector manager disabled via ADC\n";
  const test::HostDir host;
  const test::LogCapture log;
  host.write(kConfiguration, R"({"vambrik-automation-session-context-json": "of the file"})");
  const auto manager = SystemContextManager::makeDefaultManager();
  EXPECT_EQ(log.count(kDisabled), 1U);
  manager->startSystemStateCollectorThread();
  StringMap expected{{"build_tags", ""}, {"build_fingerprint", ""}, {"ci_session_context", "of the file"}};
  EXPECT_EQ(manager->getSystemContext(), expected);
  manager->stopSystemStateCollectorThread();

  // A tag that has the name of a context key but is not its tag does not count.
  const std::string tags =
      "user,quillet_diff_number:D12,quillet_version_number:7,quillet_diff_version:8,pebblor_id:1,pebblor_id:"
      ",";
  const std::string properties = "ro.system.build.tags=" + tags + "\nro.build.fingerprint=kerno/a\n";
  host.write("properties", properties);
  host.write("preferences.json", R"({"vambrik-automation-session-context-json": "not this",
                                     "vambrik-automation-test-context-json": "of the store"})");
  expected = {{"build_tags", tags},
              {"build_fingerprint", "kerno/a"},
              {"quillet_diff_number", "D12"},
              {"quillet_diff_version", "7"},
              {"pebblor_id", ""},
              {"ci_session_context", "of the file"},
              {"ci_test_context", "of the store"}};
  EXPECT_EQ(manager->getSystemContext(), expected);

  // The flag is read when a manager is made. The chain is the first manager's.
  host.write(kConfiguration, "{}");
  host.write("properties", properties +
                               "persist.device_config.pellux_shared_os_services."
                               "oscontrol_enable_diagnostic_collector_service_corr=true\n");
  EXPECT_EQ(SystemContextManager::makeDefaultManager()->getSystemContext(), expected);
  EXPECT_EQ(log.count("Failed to create system state collector manager\n"), 1U)
      << "this device has no source";
  EXPECT_EQ(log.count(kDisabled), 1U);

  host.write("proc/meminfo", "MemTotal: 2048 kB\nMemFree: 1024 kB\nMemAvailable: 1536 kB\n");
  StringMap context = SystemContextManager::makeDefaultManager()->getSystemContext();
  EXPECT_EQ(context.erase("system_meminfo_history"), 1U);
  EXPECT_EQ(context, expected);
  EXPECT_THAT(
      log.texts(ANDROID_LOG_DEBUG),
      testing::Contains(testing::StartsWith("System state history: system_meminfo_history, report size ")));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
