#include "systemcontext/SystemContextManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "configuration/DefaultConfiguration.h"
#include "support/LogCapture.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using Values = std::unordered_map<std::string, std::string>;

// The result of parsing: "name" of a flag, "name=value" of a value.
std::vector<std::string> parsed(const std::string& tags) {
  std::unordered_set<std::string> flags;
  Values values;
  EXPECT_TRUE(SystemContextManager::parseBuildTags(tags, flags, values));
  std::vector<std::string> all(flags.begin(), flags.end());
  for (const auto& [name, value] : values) all.push_back(name + "=" + value);
  return all;
}

TEST(BuildTags, AreFlagsAndNamedValues) {
  EXPECT_THAT(parsed("release-keys"), UnorderedElementsAre("release-keys"));
  EXPECT_THAT(parsed("user,a:1,user,b:"), UnorderedElementsAre("user", "a=1", "b="));
  EXPECT_THAT(parsed("a:b:c"), UnorderedElementsAre("a=b:c"));
  EXPECT_THAT(parsed("a:1,a:2,a"), UnorderedElementsAre("a=2", "a"));
  EXPECT_THAT(parsed(" a : 1 ,\tb"), UnorderedElementsAre(" a = 1 ", "\tb"));
}

TEST(BuildTags, DropWhatHasNoName) {
  for (const char* tags : {"", ",", ",,,,", ":", ":a", "::", ":,:a,,::b"}) {
    EXPECT_THAT(parsed(tags), IsEmpty()) << tags;
  }
  EXPECT_THAT(parsed(std::string(1 << 16, ',') + "last"), UnorderedElementsAre("last"));
  EXPECT_THAT(parsed("a::,:b:c"), UnorderedElementsAre("a=:"));
}

// Collectors whose histories are given, and which note what is asked of them.
class GivenHistories : public SystemStateCollectorManager {
 public:
  GivenHistories(Values histories, std::string& calls)
      : SystemStateCollectorManager(PollStatistics::ofProcess()),
        mHistories(std::move(histories)),
        mCalls(calls) {}
  ~GivenHistories() override { mCalls += "released "; }

  void startCollectorThread() override { mCalls += "start "; }
  void stopCollectorThread() override { mCalls += "stop "; }
  std::unique_ptr<Values> dumpSystemStateHistory() override { return std::make_unique<Values>(mHistories); }

 private:
  Values mHistories;
  std::string& mCalls;
};

class SystemContextManagerTest : public testing::Test {
 protected:
  // A manager of a system with these properties.
  class Given : public SystemContextManager {
   public:
    using SystemContextManager::SystemContextManager;
    std::string getRawBuildTags() override { return tags; }
    std::string getRawBuildFingerprint() override { return fingerprint; }
    std::string tags;
    std::string fingerprint;
  };

  Given makeManager(std::unique_ptr<SystemStateCollectorManager> collectors = nullptr) {
    return Given(mConfiguration, std::move(collectors));
  }

  std::shared_ptr<Torv::OverridableConfiguration> mConfiguration =
      std::make_shared<Torv::OverridableConfiguration>(std::make_unique<Torv::DefaultConfiguration>());
  test::LogCapture mLog;
};

TEST_F(SystemContextManagerTest, ReadsReviewAndCiFromTheTagsAndTestRunsFromTheConfiguration) {
  Given manager = makeManager();
  EXPECT_THAT(manager.getSystemContext(),
              UnorderedElementsAre(Pair("build_tags", ""), Pair("build_fingerprint", "")));
  manager.fingerprint = "kerno/a:12/b:user";
  manager.tags = "release-keys,quillet_diff_number:D123,quillet_version_number:7,pebblor_id:1,pebblor_id:99";
  mConfiguration->setString("vambrik-automation-session-context-json", R"({"session":1})");
  mConfiguration->setString("vambrik-automation-test-context-json", "");
  EXPECT_THAT(
      manager.getSystemContext(),
      UnorderedElementsAre(Pair("build_tags", manager.tags), Pair("build_fingerprint", manager.fingerprint),
                           Pair("quillet_diff_number", "D123"), Pair("quillet_diff_version", "7"),
                           Pair("pebblor_id", "99"), Pair("ci_session_context", R"({"session":1})")));

  // A tag by the name of the context key is no source of it, and all is read anew.
  manager.tags = "quillet_diff_version:8,pebblor_id:";
  mConfiguration->setString("vambrik-automation-test-context-json", "{}");
  EXPECT_THAT(
      manager.getSystemContext(),
      UnorderedElementsAre(Pair("build_tags", manager.tags), Pair("build_fingerprint", manager.fingerprint),
                           Pair("pebblor_id", ""), Pair("ci_session_context", R"({"session":1})"),
                           Pair("ci_test_context", "{}")));
}

TEST_F(SystemContextManagerTest, StartsAndStopsTheCollectorsAndAddsHistoriesThatReplaceNothing) {
  std::string calls;
  {
    Given manager = makeManager(std::make_unique<GivenHistories>(
        Values{{"psi_cpu_history", "{}"}, {"build_tags", "not these"}}, calls));
    manager.tags = "user";
    manager.startSystemStateCollectorThread();
    manager.stopSystemStateCollectorThread();
    EXPECT_THAT(manager.getSystemContext(),
                UnorderedElementsAre(Pair("build_tags", "user"), Pair("build_fingerprint", ""),
                                     Pair("psi_cpu_history", "{}")));
  }
  EXPECT_EQ(calls, "start stop released ");
  EXPECT_THAT(mLog.texts(ANDROID_LOG_DEBUG),
              testing::IsSupersetOf({"System state history: psi_cpu_history, report size 2",
                                     "System state history: build_tags, report size 9"}));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
