// The command line changes settings of a running process, with the real diagctl, module and files.
#include <gmock/gmock.h>
#include <unistd.h>

#include "base/Json.h"
#include "configuration/ConfigurationChain.h"
#include "fixture/Process.h"
#include "support/TempDir.h"

namespace Torv {
namespace {

constexpr char kFile[] = "system_ext/etc/torv_crashreporter.conf";

fixture::Outcome diagctl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), DIAGCTL);
  return fixture::run(arguments, {getuid(), {}});
}

int setPreference(const std::string& key, const std::string& value) {
  return diagctl({"pref", "set", "crash-reporter-" + key, value}).exitCode();
}

TEST(DiagctlSettingsTest, whatIsSetIsStoredUnderTheTypeItsReadersAskFor) {
  const test::HostDir host;
  host.write("preferences.json", "{}");
  host.write(kFile, "{}");
  const auto chain = buildConfigurationChain();
  EXPECT_EQ(setPreference("app-id", "123"), 0);
  EXPECT_EQ(setPreference("logcat-enable", "false"), 0);
  EXPECT_EQ(setPreference("logcat-tail-count", "-5"), 0);
  EXPECT_EQ(setPreference("retain-crash-report-for-x-seconds", "70000"), 0);
  EXPECT_EQ(chain->getString("crash-reporter-app-id"), "123");
  EXPECT_FALSE(chain->getBool("crash-reporter-logcat-enable"));
  EXPECT_EQ(chain->getInt("crash-reporter-logcat-tail-count"), -5);
  EXPECT_EQ(chain->getUint("crash-reporter-retain-crash-report-for-x-seconds"), 4464);
  EXPECT_EQ(diagctl({"pref", "get", "crash-reporter-app-id"}).output, "123\n");

  EXPECT_EQ(diagctl({"pref", "unset", "crash-reporter-app-id"}).exitCode(), 0);
  EXPECT_EQ(diagctl({"pref", "get", "crash-reporter-app-id"}).exitCode(), 1);
  EXPECT_EQ(diagctl({"pref", "unset", "crash-reporter-app-id"}).exitCode(), 1) << "it is not stored any more";

  EXPECT_EQ(setPreference("logcat-enable", "yes"), 2) << "no bool";
  EXPECT_EQ(setPreference("logcat-tail-count", "2147483648"), 2) << "no int";
  const char* const enable = "crash-reporter-logcat-enable";
  EXPECT_EQ(diagctl({"pref", "set", enable, "text", "--type", "string"}).exitCode(), 0);
  EXPECT_TRUE(chain->getBool(enable)) << "a string is no answer for a bool";
  EXPECT_EQ(diagctl({"pref", "list"}).output,
            "crash-reporter-logcat-enable                      text\n"
            "crash-reporter-logcat-tail-count                  -5\n"
            "crash-reporter-retain-crash-report-for-x-seconds  70000\n");
}

TEST(DiagctlSettingsTest, configNamesTheLayerThatAnswers) {
  const test::HostDir host;
  host.write(kFile, R"({
      "crash-reporter-logcat-tail-count": 20, "crash-reporter-logcat-tail-seconds": "30",
      "crash-reporter-error-extra-data": {"a": 1}, "vambrik-automation-test-context-json": "{\"t\": 1}"})");
  host.write("preferences.json", R"({
      "crash-reporter-logcat-tail-count": 10, "crash-reporter-logcat-enable": false,
      "crash-reporter-url": 7})");
  const auto shown = diagctl({"--json", "config"});
  const auto document = Base::parseJson(shown.output, Base::JsonRules::Strict);
  ASSERT_TRUE(document.ok()) << shown.output;
  EXPECT_EQ(document->size(), 31u);
  const auto answer = [&](const char* key) {
    return (*document)[key]["layer"].asString() + " " + (*document)[key]["value"].toStyledString();
  };
  EXPECT_EQ(answer("crash-reporter-logcat-tail-count"), "file 20\n");
  EXPECT_EQ(answer("crash-reporter-logcat-tail-seconds"), "default 120\n");
  EXPECT_EQ(answer("crash-reporter-logcat-enable"), "preferences false\n");
  EXPECT_EQ(answer("crash-reporter-user-agent"), "default \"pellux/os\"\n");
  EXPECT_THAT(answer("crash-reporter-url"), testing::HasSubstr("default \"https://"));
  EXPECT_EQ((*document)["crash-reporter-error-extra-data"]["value"]["a"], "1");
}

}  // namespace
}  // namespace Torv
