// The layers one by one, and the chain as the service builds it, over files of a directory of the test's own.
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "configuration/ConfigurationChain.h"
#include "configuration/DefaultConfiguration.h"
#include "configuration/JSONConfiguration.h"
#include "os/Json.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace Torv {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

std::unique_ptr<IConfiguration> fileLayer(const std::string& text) {
  std::string error;
  auto root = OS::parseJson(text, error);
  EXPECT_TRUE(root) << error;
  return std::make_unique<JSONConfiguration>(std::move(*root), std::make_unique<DefaultConfiguration>());
}

// The writes of a version reset, tested with the preferences, show most of the defaults.
TEST(DefaultConfigurationTest, answersFromTheTablesAndFallsBack) {
  const DefaultConfiguration defaults;
  EXPECT_EQ(defaults.settings().size(), 28u);
  EXPECT_EQ(defaults.getString("crash-reporter-pstore-dir-name"), "/sys/fs/pstore");
  EXPECT_EQ(defaults.getString("crash-reporter-report-dir-name"), "/data/misc/crashes/");
  EXPECT_EQ(defaults.getString("crash-reporter-uuid-filename"), "/data/misc/crashes/uuid");
  const std::string url = defaults.getString("crash-reporter-url");
  EXPECT_EQ(url.size(), 63u);
  EXPECT_EQ(url.rfind("https://", 0), 0u);
  EXPECT_THAT(url, HasSubstr(".example.com/"));

  // Unknown keys, and known ones under another type.
  EXPECT_EQ(defaults.getString("crash-reporter-logcat-tail-seconds"), "");
  EXPECT_EQ(defaults.getUint("crash-reporter-logcat-tail-seconds"), 0);
  EXPECT_EQ(defaults.getInt("crash-reporter-key-value-version"), -1);
  EXPECT_FALSE(defaults.getBool("crash-reporter-url"));
  EXPECT_THAT(defaults.getLocalStrMap("crash-reporter-url"), IsEmpty());
}

TEST(JSONConfigurationTest, scalarsAnswerOnlyUnderTheirOwnType) {
  const auto file = fileLayer(R"({
    "crash-reporter-logcat-tail-seconds": "30", "crash-reporter-rate-limiting-time-window": 2147483648,
    "crash-reporter-rate-limiting-max-reported-crashes": 1.5,
    "crash-reporter-max-number-of-crashes-in-report-dir": 70000,
    "crash-reporter-upload-to-server-max-retry-time-delay": 65536,
    "crash-reporter-upload-to-server-initial-retry-time-delay": 4294967296,
    "crash-reporter-upload-delay-until-check-for-crashes-after-boot": -1,
    "crash-reporter-retain-crash-report-for-x-seconds": -0,
    "crash-reporter-logcat-enable": 0, "crash-reporter-wtf-report-enable": true,
    "crash-reporter-user-agent": 7, "crash-reporter-app-id": "a\u0000b",
    "whole": 3.0, "whole-and-too-large": 1e10, "whole-and-negative": -3.0})");
  EXPECT_EQ(file->getInt("crash-reporter-logcat-tail-seconds"), 120);
  EXPECT_EQ(file->getInt("crash-reporter-rate-limiting-time-window"), 1440);
  EXPECT_EQ(file->getInt("crash-reporter-rate-limiting-max-reported-crashes"), 25);
  EXPECT_EQ(file->getUint("crash-reporter-max-number-of-crashes-in-report-dir"), 4464);
  EXPECT_EQ(file->getUint("crash-reporter-upload-to-server-max-retry-time-delay"), 0);
  EXPECT_EQ(file->getUint("crash-reporter-upload-to-server-initial-retry-time-delay"), 60);
  EXPECT_EQ(file->getUint("crash-reporter-upload-delay-until-check-for-crashes-after-boot"), 30);
  EXPECT_EQ(file->getUint("crash-reporter-retain-crash-report-for-x-seconds"), 0);
  EXPECT_TRUE(file->getBool("crash-reporter-logcat-enable"));
  EXPECT_TRUE(file->getBool("crash-reporter-wtf-report-enable"));
  EXPECT_EQ(file->getString("crash-reporter-user-agent"), "pellux/os");
  EXPECT_EQ(file->getString("crash-reporter-app-id"), std::string("a\0b", 3));
  EXPECT_EQ(file->getInt("whole"), 3) << "as the library counts integers";
  EXPECT_EQ(file->getInt("whole-and-too-large"), -1);
  EXPECT_EQ(file->getInt("whole-and-negative"), -3);
  EXPECT_EQ(file->getUint("whole-and-negative"), 0);
}

TEST(JSONConfigurationTest, aMapKeepsWhatHasAText) {
  const test::LogCapture log;
  const auto file = fileLayer(R"({"crash-reporter-error-extra-data":
      {"z": "last", "a": 1, "b": [1], "n": null, "t": true, "r": 0.5, "o": {}}})");
  EXPECT_THAT(
      file->getLocalStrMap("crash-reporter-error-extra-data"),
      ElementsAre(Pair("a", "1"), Pair("n", ""), Pair("r", "0.5"), Pair("t", "true"), Pair("z", "last")));
  EXPECT_THAT(log.texts(ANDROID_LOG_WARN), ElementsAre("Map field \"b\" cannot be converted to string",
                                                       "Map field \"o\" cannot be converted to string"));
  EXPECT_EQ(log.lines()[0].tag, "libDiagnosticConfiguration");
}

// Answers every map with one entry, so that a look-up which was handed on can be told.
class OneEntry : public DefaultConfiguration {
 public:
  std::map<std::string, std::string> getLocalStrMap(const std::string& key) const override {
    return {{key, "from below"}};
  }
};

TEST(JSONConfigurationTest, anObjectAnswersForItsKeyAndNothingElseDoes) {
  Json::Value root(Json::objectValue);
  root["empty"] = Json::Value(Json::objectValue);
  root["array"] = Json::Value(Json::arrayValue);
  const JSONConfiguration file(root, std::make_unique<OneEntry>());
  EXPECT_THAT(file.getLocalStrMap("empty"), IsEmpty());
  EXPECT_THAT(file.getLocalStrMap("array"), ElementsAre(Pair("array", "from below")));
  EXPECT_THAT(file.getLocalStrMap("absent"), ElementsAre(Pair("absent", "from below")));
}

class ChainTest : public ::testing::Test {
 protected:
  void writeFile(const std::string& text) { mDir.write("root/system_ext/etc/torv_crashreporter.conf", text); }
  void writePreferences(const std::string& text) { mDir.write("runtime/preferences.json", text); }

  test::TempDir mDir;
  test::ScopedEnv mDevice{"TORV_DEVICE_ROOT", mDir.path("root")};
  test::ScopedEnv mRuntime{"TORV_RUNTIME_DIR", mDir.path("runtime")};
};

TEST_F(ChainTest, eachLayerWinsOverThoseBelow) {
  constexpr char kCount[] = "crash-reporter-logcat-tail-count";
  writeFile("{}");
  const auto chain = buildConfigurationChain();
  EXPECT_EQ(chain->getInt(kCount), -1);
  EXPECT_EQ(chain->getUint("crash-reporter-upload-to-server-max-retry-time-delay"), 3600);
  writePreferences(R"({"crash-reporter-logcat-tail-count": 10})");
  EXPECT_EQ(chain->getInt(kCount), 10) << "the store is asked anew each time";
  writeFile(R"({"crash-reporter-logcat-tail-count": 20})");
  EXPECT_EQ(chain->getInt(kCount), 10) << "the file is read once";
  const auto later = buildConfigurationChain();
  EXPECT_EQ(later->getInt(kCount), 20);
  later->setInt(kCount, 30);
  EXPECT_EQ(later->getInt(kCount), 30);
  EXPECT_EQ(later->getString(kCount), "") << "an override has one type";
}

TEST_F(ChainTest, anUnusableStoreIsToldOnceAndTheDefaultsAnswer) {
  test::LogCapture log;
  constexpr char kSeconds[] = "crash-reporter-logcat-tail-seconds";
  writeFile("{}");
  writePreferences(R"({"crash-reporter-logcat-tail-seconds": 7})");
  const auto chain = buildConfigurationChain();
  EXPECT_EQ(chain->getInt(kSeconds), 7);
  log.clear();
  const std::string path = mDir.path("runtime/preferences.json");
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
  EXPECT_EQ(chain->getInt(kSeconds), 120);
  EXPECT_EQ(chain->getInt(kSeconds), 120);
  EXPECT_EQ(log.lines().size(), 1u);
  ASSERT_EQ(rmdir(path.c_str()), 0);
  writePreferences(R"({"crash-reporter-logcat-tail-seconds": )");
  EXPECT_EQ(chain->getInt(kSeconds), 120);
  EXPECT_EQ(chain->getInt(kSeconds), 120);
  EXPECT_EQ(log.lines().size(), 2u);
  writePreferences(R"({"crash-reporter-logcat-tail-seconds": 8})");
  EXPECT_EQ(chain->getInt(kSeconds), 8);
}

TEST_F(ChainTest, overridesHaveOneValueATypeAndTheRestPassesThrough) {
  writeFile(R"({"crash-reporter-error-extra-data": {"a": 1}})");
  const auto chain = buildConfigurationChain();
  chain->setString("k", "text");
  chain->setUint("k", 65535);
  chain->setInt("k", -3);
  chain->setBool("k", true);
  chain->setString("k", "later text");
  EXPECT_EQ(chain->getString("k"), "later text");
  EXPECT_EQ(chain->getUint("k"), 65535);
  EXPECT_EQ(chain->getInt("k"), -3);
  EXPECT_TRUE(chain->getBool("k"));
  EXPECT_EQ(chain->getLocalStrMap("crash-reporter-error-extra-data").size(), 1u);
  chain->registerPreferencesChangeCallback([](void*) {});
  chain->registerPreferencesChangeCallback([] {}, "k");
  chain->runCallbackFunctions();
  EXPECT_EQ(chain->getCallbackSize(), 0u);
}

TEST_F(ChainTest, aFileThatIsNoObjectEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const char* const message = "Unable to load service configuration: /system_ext/etc/torv_crashreporter.conf";
  EXPECT_DEATH(buildConfigurationChain(), message);
  for (const char* text : {"", "[]", "7", "\"text\"", "null", "{", "{\"a\": 1e400}"}) {
    writeFile(text);
    EXPECT_DEATH(buildConfigurationChain(), message) << text;
  }
  writeFile(std::string(100000, '['));
  EXPECT_DEATH(buildConfigurationChain(), message);
  const std::string path = mDir.path("root/system_ext/etc/torv_crashreporter.conf");
  ASSERT_EQ(truncate(path.c_str(), 100 << 20), 0);  // zeros
  EXPECT_DEATH(buildConfigurationChain(), message);
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
  EXPECT_DEATH(buildConfigurationChain(), message);
}

}  // namespace
}  // namespace Torv
