// Settings from the command line into a running process: the real diagctl, the real module, real files.
#include <array>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "configuration/ConfigurationChain.h"
#include "configuration/DefaultConfiguration.h"
#include "configuration/PreferencesConfiguration.h"
#include "os/Json.h"
#include "support/TempDir.h"

namespace Torv {
namespace {

using ::testing::HasSubstr;

struct Outcome {
  int exitCode = -1;
  std::string output;  // stdout, then stderr
};

Outcome diagctl(const std::string& arguments) {
  Outcome outcome;
  FILE* pipe = popen((DIAGCTL " " + arguments + " 2>&1").c_str(), "re");
  std::array<char, 4096> buffer{};
  while (const size_t got = fread(buffer.data(), 1, buffer.size(), pipe)) {
    outcome.output.append(buffer.data(), got);
  }
  outcome.exitCode = WEXITSTATUS(pclose(pipe));
  return outcome;
}

class DiagctlSettingsTest : public ::testing::Test {
 protected:
  DiagctlSettingsTest() { mDir.write("runtime/preferences.json", "{}"); }

  test::TempDir mDir;
  test::ScopedEnv mDevice{"TORV_DEVICE_ROOT", mDir.path("root")};
  test::ScopedEnv mRuntime{"TORV_RUNTIME_DIR", mDir.path("runtime")};
};

TEST_F(DiagctlSettingsTest, whatIsSetIsStoredUnderTheTypeItsReadersAskFor) {
  mDir.write("root/system_ext/etc/torv_crashreporter.conf", "{}");
  const auto chain = buildConfigurationChain();
  for (const char* arguments :
       {"pref set crash-reporter-app-id 123", "pref set crash-reporter-logcat-enable false",
        "pref set crash-reporter-logcat-tail-count -5",
        "pref set crash-reporter-retain-crash-report-for-x-seconds 9"}) {
    EXPECT_EQ(diagctl(arguments).exitCode, 0) << arguments;
  }
  EXPECT_EQ(chain->getString("crash-reporter-app-id"), "123");
  EXPECT_FALSE(chain->getBool("crash-reporter-logcat-enable"));
  EXPECT_EQ(chain->getInt("crash-reporter-logcat-tail-count"), -5);
  EXPECT_EQ(chain->getUint("crash-reporter-retain-crash-report-for-x-seconds"), 9);
  EXPECT_EQ(diagctl("pref get crash-reporter-app-id").output, "123\n");
  EXPECT_EQ(diagctl("pref get crash-reporter-url").exitCode, 1);

  const Outcome wrong = diagctl("pref set crash-reporter-logcat-enable yes");
  EXPECT_EQ(wrong.exitCode, 2);
  EXPECT_THAT(wrong.output, HasSubstr("'yes' is no bool"));
  EXPECT_EQ(diagctl("pref set crash-reporter-logcat-tail-count 2147483648").exitCode, 2);
  EXPECT_EQ(diagctl("pref set crash-reporter-error-extra-data x").exitCode, 1);
  EXPECT_EQ(diagctl("pref set crash-reporter-logcat-enable text --type string").exitCode, 0);
  EXPECT_TRUE(chain->getBool("crash-reporter-logcat-enable")) << "a string is no answer for a bool";
  EXPECT_EQ(diagctl("pref list").output,
            "crash-reporter-app-id                             123\n"
            "crash-reporter-logcat-enable                      text\n"
            "crash-reporter-logcat-tail-count                  -5\n"
            "crash-reporter-retain-crash-report-for-x-seconds  9\n");
}

TEST_F(DiagctlSettingsTest, configNamesTheLayerThatAnswers) {
  const Outcome refused = diagctl("config");
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(refused.output, HasSubstr("/system_ext/etc/torv_crashreporter.conf"));

  mDir.write("root/system_ext/etc/torv_crashreporter.conf", R"({
      "crash-reporter-logcat-tail-count": 20, "crash-reporter-logcat-tail-seconds": "30",
      "crash-reporter-error-extra-data": {"a": 1}, "vambrik-automation-test-context-json": "{\"t\": 1}"})");
  mDir.write("runtime/preferences.json", R"({
      "crash-reporter-logcat-tail-count": 10, "crash-reporter-logcat-enable": false,
      "crash-reporter-url": 7, "crash-reporter-key-value-version": 2})");
  const Outcome shown = diagctl("--json config");
  ASSERT_EQ(shown.exitCode, 0) << shown.output;
  std::string error;
  const auto document = OS::parseJson(shown.output, error, OS::JsonRules::Strict);
  ASSERT_TRUE(document) << error << shown.output;
  EXPECT_EQ(document->size(), 31u);
  const auto answer = [&](const char* key) {
    return (*document)[key]["layer"].asString() + " " + (*document)[key]["value"].toStyledString();
  };
  EXPECT_EQ(answer("crash-reporter-logcat-tail-count"), "file 20\n");
  EXPECT_EQ(answer("crash-reporter-logcat-tail-seconds"), "default 120\n");
  EXPECT_EQ(answer("crash-reporter-logcat-enable"), "preferences false\n");
  EXPECT_EQ(answer("crash-reporter-user-agent"), "default \"pellux/os\"\n");
  EXPECT_THAT(answer("crash-reporter-url"), HasSubstr("default \"https://"));
  EXPECT_EQ(answer("crash-reporter-key-value-version"), "preferences 2\n");
  EXPECT_EQ((*document)["crash-reporter-error-extra-data"]["value"]["a"], "1");
  EXPECT_THAT(diagctl("config").output, HasSubstr("vambrik-automation-test-context-json  "));
}

TEST_F(DiagctlSettingsTest, aSubscriberHearsWhatAnotherProcessSets) {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> keys;
  PreferencesConfiguration configuration(std::make_unique<DefaultConfiguration>(),
                                         PreferencesConfiguration::kKeepStore);
  const auto self = std::this_thread::get_id();
  configuration.registerPreferencesChangeCallback([&](void* list) {
    const auto* changedKeys = static_cast<OSSDK::Utils::IListString*>(list);
    EXPECT_NE(std::this_thread::get_id(), self);
    std::lock_guard lock(mutex);
    for (size_t i = 0; i < changedKeys->size(); ++i) keys.emplace_back(changedKeys->at(i).view());
    changed.notify_all();
  });
  EXPECT_EQ(diagctl("pref set crash-reporter-app-id unwatched").exitCode, 0);
  EXPECT_EQ(diagctl("pref set crash-reporter-logcat-tail-count 3").exitCode, 0);
  std::unique_lock lock(mutex);
  EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(60), [&] { return !keys.empty(); }));
  EXPECT_THAT(keys, ::testing::ElementsAre("crash-reporter-logcat-tail-count"));
  EXPECT_EQ(configuration.getInt("crash-reporter-logcat-tail-count"), 3);
}

}  // namespace
}  // namespace Torv
