// The layer over a store that records its calls.
#include "configuration/PreferencesConfiguration.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "RecordingStore.h"
#include "configuration/DefaultConfiguration.h"

namespace Torv {
namespace {

constexpr char kVersion[] = "crash-reporter-key-value-version";

class PreferencesConfigurationTest : public ::testing::Test {
 protected:
  PreferencesConfigurationTest() { mStore = {}; }

  static test::RecordingStore& store() {
    void* module = dlopen("libossdk.pellux.so", RTLD_LAZY);
    return reinterpret_cast<test::GetRecordingStore*>(dlsym(module, test::kGetRecordingStore))();
  }

  static std::unique_ptr<PreferencesConfiguration> make(unsigned short flags) {
    return std::make_unique<PreferencesConfiguration>(std::make_unique<DefaultConfiguration>(), flags);
  }

  // Returns the calls of the store since the last time.
  std::string calls() { return std::exchange(mStore.calls, ""); }

  test::RecordingStore& mStore = store();
};

const std::string kSetUp =
    "create4, listen ~user-agent ~url ~upload-cert-verify-peer ~upload-to-server-initial-retry-time-delay"
    " ~upload-to-server-max-retry-time-delay ~upload-delay-until-check-for-crashes-after-boot"
    " ~max-number-of-crashes-in-report-dir ~local-build-enable ~logcat-enable ~logcat-tail-count"
    " ~logcat-tail-seconds ~rate-limiting-time-window ~rate-limiting-max-reported-crashes"
    " ~rate-limiting-max-reported-crashes-per-process ~retain-crash-report-for-x-seconds"
    " ~wtf-report-enable ~invoke-exit-telemetry-enable ~headers, ";
const std::string kReadVersion = "getInt ~key-value-version, ";
const std::string kResets =
    "setString ~user-agent=pellux/os,"
    " setString ~url=https://crash-report.pellux-os.example.com/upload/v1/os-crashes,"
    " setString ~headers=, setString ~report-source=, setString ~report-source-ref=,"
    " setBool ~local-build-enable=false, setBool ~logcat-enable=true, setBool ~upload-cert-verify-peer=true,"
    " setBool ~wtf-report-enable=false, setBool ~invoke-exit-telemetry-enable=false,"
    " setUint ~upload-to-server-initial-retry-time-delay=60,"
    " setUint ~upload-to-server-max-retry-time-delay=3600,"
    " setUint ~upload-delay-until-check-for-crashes-after-boot=30,"
    " setUint ~max-number-of-crashes-in-report-dir=25, setUint ~retain-crash-report-for-x-seconds=0,"
    " setInt ~logcat-tail-count=-1, setInt ~logcat-tail-seconds=120, setInt ~rate-limiting-time-window=1440,"
    " setInt ~rate-limiting-max-reported-crashes=25,"
    " setInt ~rate-limiting-max-reported-crashes-per-process=20, ";

TEST_F(PreferencesConfigurationTest, flagsSayWhenTheStoreIsOpenedSubscribedResetAndClosed) {
  const std::string anew = "create4, getInt b, destroy4, ";
  struct Row {
    std::string atConstruction, atTwoLookups, atTheEnd;
  };
  const Row rows[] = {{"", anew + anew, ""},
                      {"", anew + anew, ""},
                      {kSetUp, "getInt b, getInt b, ", "destroy4, "},
                      {"", kSetUp + "getInt b, getInt b, ", "destroy4, "},
                      {"", anew + anew, ""},
                      {"", anew + anew, ""},
                      {kSetUp + kReadVersion + kResets, "getInt b, getInt b, ", "destroy4, "},
                      {"", kSetUp + kReadVersion + kResets + "getInt b, getInt b, ", "destroy4, "}};
  mStore.numbers[kVersion] = 2;
  for (unsigned short flags = 0; flags < 8; ++flags) {
    auto configuration = make(flags);
    EXPECT_EQ(calls(), rows[flags].atConstruction) << flags;
    for (int i = 0; i < 2; ++i) configuration->getInt("b");
    EXPECT_EQ(calls(), rows[flags].atTwoLookups) << flags;
    configuration.reset();
    EXPECT_EQ(calls(), rows[flags].atTheEnd) << flags;
  }
}

TEST_F(PreferencesConfigurationTest, aSetupByTheCallerKeepsTheStoreAndDoesWhatTheFlagsSay) {
  const auto plain = make(1);
  plain->setupPreferencesStoreManager();
  EXPECT_NE(plain->getPreferencesStoreManager(), nullptr);
  plain->getInt("b");
  EXPECT_EQ(calls(), "create4, getInt b, ");
  const auto checking = make(4);
  mStore.numbers[kVersion] = 2;
  checking->setupPreferencesStoreManager();
  EXPECT_EQ(calls(), "create4, " + kReadVersion + kResets);
}

TEST_F(PreferencesConfigurationTest, anOldVersionIsResetAndANewOneOrNoneIsLeftAlone) {
  make(6);
  EXPECT_EQ(calls(), kSetUp + kReadVersion + "destroy4, ");
  using Limits = std::numeric_limits<int>;
  for (const int version : {5, -1, Limits::max(), 4, 0, -2, Limits::min()}) {
    mStore.numbers[kVersion] = version;
    make(6);
    const bool old = version < 5 && version != -1;
    EXPECT_EQ(calls(), kSetUp + kReadVersion + (old ? kResets : "") + "destroy4, ") << version;
  }
}

TEST_F(PreferencesConfigurationTest, aChangeReachesEveryCallbackInOrderAndAnEmptyOneEndsTheProcess) {
  struct : OSSDK::Utils::IListString {
    size_t size() const override { return 1; }
    OSSDK::String at(size_t /*index*/) const override { return std::string_view("url"); }
  } changed;
  std::string heard;
  const auto configuration = make(2);
  for (const std::string name : {"first", "second"}) {
    configuration->registerPreferencesChangeCallback([&heard, name](void* list) {
      heard += name + " " + std::string(static_cast<OSSDK::Utils::IListString*>(list)->at(0).view()) + ", ";
    });
  }
  mStore.listener->onChanged(&changed);
  EXPECT_EQ(heard, "first url, second url, ");
  configuration->registerPreferencesChangeCallback(nullptr);
  EXPECT_DEATH(mStore.listener->onChanged(&changed), "Empty preferences change callback");
}

TEST_F(PreferencesConfigurationTest, aStoredValueWinsOverTheDefault) {
  mStore.numbers["crash-reporter-logcat-enable"] = 2;  // only the lowest bit counts
  mStore.numbers["crash-reporter-wtf-report-enable"] = 3;
  mStore.numbers["crash-reporter-retain-crash-report-for-x-seconds"] = 70000;
  mStore.numbers["crash-reporter-logcat-tail-count"] = -7;
  mStore.strings["crash-reporter-url"] = std::string("a\0b", 3);
  mStore.strings["crash-reporter-user-agent"] = "";
  const auto configuration = make(1);
  EXPECT_FALSE(configuration->getBool("crash-reporter-logcat-enable"));
  EXPECT_TRUE(configuration->getBool("crash-reporter-wtf-report-enable"));
  EXPECT_EQ(configuration->getUint("crash-reporter-retain-crash-report-for-x-seconds"), 4464);
  EXPECT_EQ(configuration->getInt("crash-reporter-logcat-tail-count"), -7);
  EXPECT_EQ(configuration->getString("crash-reporter-url"), std::string("a\0b", 3));
  EXPECT_EQ(configuration->getString("crash-reporter-user-agent"), "");
  EXPECT_EQ(configuration->getInt("crash-reporter-logcat-tail-seconds"), 120);
}

}  // namespace
}  // namespace Torv
