// The layer over a store that writes down what is asked of it.
#include "configuration/PreferencesConfiguration.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RecordingStore.h"
#include "configuration/DefaultConfiguration.h"

namespace Torv {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

class ChangedKeys : public OSSDK::Utils::IListString {
 public:
  size_t size() const override { return 1; }
  OSSDK::String at(size_t /*index*/) const override { return "crash-reporter-url"; }
};

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

  test::RecordingStore& mStore = store();
};

const char* const kListen =
    "listen crash-reporter-user-agent crash-reporter-url crash-reporter-upload-cert-verify-peer"
    " crash-reporter-upload-to-server-initial-retry-time-delay"
    " crash-reporter-upload-to-server-max-retry-time-delay"
    " crash-reporter-upload-delay-until-check-for-crashes-after-boot"
    " crash-reporter-max-number-of-crashes-in-report-dir crash-reporter-local-build-enable"
    " crash-reporter-logcat-enable crash-reporter-logcat-tail-count crash-reporter-logcat-tail-seconds"
    " crash-reporter-rate-limiting-time-window crash-reporter-rate-limiting-max-reported-crashes"
    " crash-reporter-rate-limiting-max-reported-crashes-per-process"
    " crash-reporter-retain-crash-report-for-x-seconds crash-reporter-wtf-report-enable"
    " crash-reporter-invoke-exit-telemetry-enable crash-reporter-headers";

const char* const kReadVersion = "getInt crash-reporter-key-value-version";

const std::vector<std::string> kResets = {
    "setString crash-reporter-user-agent=pellux/os",
    "setString crash-reporter-url=https://crash-report.pellux-os.example.com/upload/v1/os-crashes",
    "setString crash-reporter-headers=",
    "setString crash-reporter-report-source=",
    "setString crash-reporter-report-source-ref=",
    "setBool crash-reporter-local-build-enable=false",
    "setBool crash-reporter-logcat-enable=true",
    "setBool crash-reporter-upload-cert-verify-peer=true",
    "setBool crash-reporter-wtf-report-enable=false",
    "setBool crash-reporter-invoke-exit-telemetry-enable=false",
    "setUint crash-reporter-upload-to-server-initial-retry-time-delay=60",
    "setUint crash-reporter-upload-to-server-max-retry-time-delay=3600",
    "setUint crash-reporter-upload-delay-until-check-for-crashes-after-boot=30",
    "setUint crash-reporter-max-number-of-crashes-in-report-dir=25",
    "setUint crash-reporter-retain-crash-report-for-x-seconds=0",
    "setInt crash-reporter-logcat-tail-count=-1",
    "setInt crash-reporter-logcat-tail-seconds=120",
    "setInt crash-reporter-rate-limiting-time-window=1440",
    "setInt crash-reporter-rate-limiting-max-reported-crashes=25",
    "setInt crash-reporter-rate-limiting-max-reported-crashes-per-process=20",
};

TEST_F(PreferencesConfigurationTest, withoutAKeptStoreEachLookupOpensItAnew) {
  mStore.ints["crash-reporter-key-value-version"] = 2;
  for (const unsigned short flags : {0, 1, 4, 5}) {
    mStore.calls.clear();
    const auto configuration = make(flags);
    EXPECT_THAT(mStore.calls, IsEmpty());
    configuration->getBool("a");
    configuration->getInt("b");
    EXPECT_THAT(mStore.calls,
                ElementsAre("create4", "getBool a", "destroy4", "create4", "getInt b", "destroy4"));
  }
}

TEST_F(PreferencesConfigurationTest, aKeptStoreIsSetUpAtOnceUnlessLazy) {
  auto configuration = make(2);
  EXPECT_THAT(mStore.calls, ElementsAre("create4", kListen));
  configuration->getInt("b");
  configuration.reset();
  EXPECT_THAT(mStore.calls, ElementsAre("create4", kListen, "getInt b", "destroy4"));

  mStore.calls.clear();
  configuration = make(3);
  EXPECT_THAT(mStore.calls, IsEmpty());
  configuration->getInt("b");
  configuration->getInt("b");
  EXPECT_THAT(mStore.calls, ElementsAre("create4", kListen, "getInt b", "getInt b"));
}

TEST_F(PreferencesConfigurationTest, anOldVersionIsResetInTheFixedOrder) {
  for (const int version : {4, 2, 0, -2, std::numeric_limits<int>::min()}) {
    mStore.ints["crash-reporter-key-value-version"] = version;
    mStore.calls.clear();
    const auto configuration = make(6);
    std::vector<std::string> expected = {"create4", kListen, kReadVersion};
    expected.insert(expected.end(), kResets.begin(), kResets.end());
    EXPECT_THAT(mStore.calls, ElementsAreArray(expected)) << version;
  }
  mStore.calls.clear();
  const auto lazy = make(7);
  EXPECT_THAT(mStore.calls, IsEmpty());
  lazy->getInt("b");
  EXPECT_EQ(mStore.calls.size(), 3 + kResets.size() + 1);
  EXPECT_EQ(mStore.calls.back(), "getInt b");
}

TEST_F(PreferencesConfigurationTest, aNewVersionOrNoneIsLeftAlone) {
  make(6);
  EXPECT_THAT(mStore.calls, ElementsAre("create4", kListen, kReadVersion, "destroy4"));
  for (const int version : {5, -1, std::numeric_limits<int>::max()}) {
    mStore.ints["crash-reporter-key-value-version"] = version;
    mStore.calls.clear();
    make(6);
    EXPECT_THAT(mStore.calls, ElementsAre("create4", kListen, kReadVersion, "destroy4")) << version;
  }
}

TEST_F(PreferencesConfigurationTest, aStoredValueWinsOverTheDefault) {
  mStore.bools["crash-reporter-logcat-enable"] = 2;  // only the lowest bit counts
  mStore.bools["crash-reporter-wtf-report-enable"] = 3;
  mStore.uints["crash-reporter-retain-crash-report-for-x-seconds"] = 70000;
  mStore.ints["crash-reporter-logcat-tail-count"] = -7;
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
  EXPECT_EQ(mStore.ownedTexts, 0) << "every text that was given away is released";
}

TEST_F(PreferencesConfigurationTest, callbacksGetTheListInTheirOrder) {
  const auto configuration = make(2);
  std::vector<std::string> calls;
  ChangedKeys keys;
  for (const char* name : {"first ", "second "}) {
    configuration->registerPreferencesChangeCallback([&, name](void* list) {
      calls.push_back(name + std::string(static_cast<OSSDK::Utils::IListString*>(list)->at(0).view()));
    });
  }
  configuration->registerPreferencesChangeCallback([&] { calls.emplace_back("keyed"); },
                                                   "crash-reporter-url");
  mStore.listener->onConnected();
  mStore.listener->onChanged(&keys);
  mStore.listener->onDisconnected();
  EXPECT_THAT(calls, ElementsAre("first crash-reporter-url", "second crash-reporter-url"));
  EXPECT_EQ(configuration->getCallbackSize(), 0u);
  configuration->runCallbackFunctions();
  EXPECT_EQ(calls.size(), 2u);

  configuration->registerPreferencesChangeCallback(std::function<void(void*)>());
  EXPECT_EXIT(mStore.listener->onChanged(&keys), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace Torv
