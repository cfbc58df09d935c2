// Each layer by itself, and the chain that the service builds, over files in a temporary directory.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/Json.h"
#include "configuration/ConfigurationChain.h"
#include "configuration/DefaultConfiguration.h"
#include "configuration/JSONConfiguration.h"
#include "support/LogCapture.h"
#include "support/Result.h"
#include "support/TempDir.h"

namespace Torv {
namespace {

using ::testing::ElementsAre, ::testing::IsEmpty, ::testing::Pair;

std::unique_ptr<IConfiguration> fileLayer(
    const std::string& text,
    std::unique_ptr<IConfiguration> next = std::make_unique<DefaultConfiguration>()) {
  return std::make_unique<JSONConfiguration>(Base::parseJson(text).value(), std::move(next));
}

TEST(JSONConfigurationTest, scalarsAnswerOnlyUnderTheirOwnType) {
  const auto answer = [&](const char* key, const char* value) {
    return fileLayer("{\"" + std::string(key) + "\": " + value + "}",
                     fileLayer(R"({"text": "below", "yes": true, "no": false, "number": 7})"));
  };
  EXPECT_EQ(answer("text", "7")->getString("text"), "below");
  EXPECT_EQ(answer("text", R"("a\u0000b")")->getString("text"), std::string("a\0b", 3));
  EXPECT_TRUE(answer("yes", "0")->getBool("yes"));
  EXPECT_TRUE(answer("no", "true")->getBool("no"));

  // The library counts 3.0 as an integer.
  constexpr std::tuple<const char*, int, int> kRows[] = {
      {"\"30\"", 7, 7},       {"1.5", 7, 7},        {"3.0", 3, 3},       {"-3.0", -3, 7},
      {"1e10", 7, 7},         {"-0", 0, 0},         {"-1", -1, 7},       {"65536", 65536, 0},
      {"70000", 70000, 4464}, {"2147483648", 7, 0}, {"4294967296", 7, 7}};
  for (const auto& [value, asInt, asUint] : kRows) {
    EXPECT_EQ(answer("number", value)->getInt("number"), asInt) << value;
    EXPECT_EQ(answer("number", value)->getUint("number"), asUint) << value;
  }
}

TEST(JSONConfigurationTest, anObjectAnswersForItsKeyWithWhatHasAText) {
  const test::LogCapture log;
  const auto file = fileLayer(
      R"({"map": {"z": "last", "a": 1, "b": [1], "n": null, "t": true, "r": 0.5, "o": {}},
          "empty": {}, "array": []})",
      fileLayer(R"({"map": {"q": "1"}, "empty": {"q": "2"}, "array": {"q": "3"}, "absent": {"q": "4"}})"));
  EXPECT_THAT(file->getLocalStrMap("map"), ElementsAre(Pair("a", "1"), Pair("n", ""), Pair("r", "0.5"),
                                                       Pair("t", "true"), Pair("z", "last")));
  EXPECT_THAT(log.texts(ANDROID_LOG_WARN), ElementsAre("Map field \"b\" cannot be converted to string",
                                                       "Map field \"o\" cannot be converted to string"));
  EXPECT_EQ(log.lines()[0].tag, "libDiagnosticConfiguration");
  EXPECT_THAT(file->getLocalStrMap("empty"), IsEmpty());
  EXPECT_THAT(file->getLocalStrMap("array"), ElementsAre(Pair("q", "3")));
  EXPECT_THAT(file->getLocalStrMap("absent"), ElementsAre(Pair("q", "4")));
}

constexpr char kFile[] = "system_ext/etc/torv_crashreporter.conf";

// The tests of diagctl and of the system context check the answers of the file, the store and the defaults.
TEST(ChainTest, overridesHaveOneValueATypeAndTheRestPassesThrough) {
  constexpr char kCount[] = "crash-reporter-logcat-tail-count";
  const test::HostDir host;
  host.write(kFile,
             R"({"crash-reporter-logcat-tail-count": 20, "crash-reporter-error-extra-data": {"a": 1}})");
  const auto chain = buildConfigurationChain();
  host.write(kFile, "{}");
  EXPECT_EQ(chain->getInt(kCount), 20) << "the file is read once";
  chain->setInt(kCount, -30);
  chain->setUint(kCount, 65535);
  chain->setBool(kCount, true);
  EXPECT_EQ(chain->getString(kCount), "") << "an override has one type";
  chain->setString(kCount, "text");
  EXPECT_EQ(chain->getString(kCount), "text");
  EXPECT_EQ(chain->getUint(kCount), 65535);
  EXPECT_EQ(chain->getInt(kCount), -30);
  EXPECT_TRUE(chain->getBool(kCount));
  EXPECT_EQ(chain->getLocalStrMap("crash-reporter-error-extra-data").size(), 1u);
}

TEST(ChainTest, aFileThatIsNoObjectEndsTheProcess) {
  const std::string message = "Unable to load service configuration: /system_ext/etc/torv_crashreporter.conf";
  const test::HostDir host;
  EXPECT_DEATH(buildConfigurationChain(), message);
  for (const char* text : {"[]", "7", "null", "{", ""}) {
    host.write(kFile, text);
    EXPECT_DEATH(buildConfigurationChain(), message) << text;
  }
  const std::string path = host.write(kFile, std::string(101, '['));
  EXPECT_EQ(test::errorOf(readServiceConfiguration()), "nested deeper than 100 levels")
      << "the limit is named";
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_EQ(mkfifo(path.c_str(), 0644), 0);  // nobody writes to it, so opening it must not wait
  EXPECT_DEATH(buildConfigurationChain(), "is not a regular file.*" + message);
}

}  // namespace
}  // namespace Torv
