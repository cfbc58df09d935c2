// The layer over the real module and its file.
#include "configuration/PreferencesConfiguration.h"

#include <filesystem>
#include <future>

#include <gmock/gmock.h>

#include "base/Json.h"
#include "configuration/DefaultConfiguration.h"
#include "support/TempDir.h"

namespace Torv {
namespace {

// Returns an object of these members, whose names begin with "~" for "crash-reporter-".
Json::Value object(std::string members) {
  for (size_t at = 0; (at = members.find('~', at)) != std::string::npos;) {
    members.replace(at, 1, "crash-reporter-");
  }
  return Base::parseJson("{" + members + "}").value();
}

class PreferencesConfigurationTest : public ::testing::Test {
 protected:
  // Replaces the file at once, as the module's own writers do.
  void store(const Json::Value& values) const {
    std::filesystem::rename(mHost.write("new", values.toStyledString()), mHost.path("preferences.json"));
  }
  Json::Value stored() const {
    return Base::parseJson(test::readFile(mHost.path("preferences.json"))).value();
  }
  static std::unique_ptr<PreferencesConfiguration> make(unsigned short flags) {
    return std::make_unique<PreferencesConfiguration>(std::make_unique<DefaultConfiguration>(), flags);
  }

  const test::HostDir mHost;
};

TEST_F(PreferencesConfigurationTest, flagsSayWhetherTheStoreIsKeptAndWhenAnOldOneIsReset) {
  const Json::Value old = object(R"("~key-value-version": 4)");
  for (unsigned short flags = 0; flags < 8; ++flags) {
    store(old);
    const auto configuration = make(flags);
    EXPECT_EQ(stored() != old, flags == 6) << flags;
    configuration->getInt("any");
    EXPECT_EQ(stored() != old, flags >= 6) << flags;
    const auto manager = configuration->getPreferencesStoreManager();
    EXPECT_EQ(configuration->getPreferencesStoreManager() == manager, (flags & 2) != 0) << flags;
    configuration->setupPreferencesStoreManager();
    EXPECT_EQ(stored() != old, flags >= 4) << flags;
    EXPECT_EQ(configuration->getPreferencesStoreManager(), configuration->getPreferencesStoreManager());
  }
}

TEST_F(PreferencesConfigurationTest, aResetWritesTwentyDefaultsUnlessTheVersionIsNewOrMissing) {
  using Limits = std::numeric_limits<int>;
  for (const int version : {5, -1, Limits::max(), 4, 0, -2, Limits::min()}) {
    const std::string kept = R"("~app-id": "kept", "~key-value-version": )" + std::to_string(version);
    store(object(kept + R"(, "~url": "old")"));
    make(6);
    const bool isOld = version < 5 && version != -1;
    EXPECT_EQ(stored(), object(kept + (isOld ? R"(, "~user-agent": "pellux/os",
        "~url": "https://crash-report.pellux-os.example.com/upload/v1/os-crashes",
        "~headers": "", "~report-source": "", "~report-source-ref": "", "~local-build-enable": false,
        "~logcat-enable": true, "~upload-cert-verify-peer": true, "~wtf-report-enable": false,
        "~invoke-exit-telemetry-enable": false, "~upload-to-server-initial-retry-time-delay": 60,
        "~upload-to-server-max-retry-time-delay": 3600, "~max-number-of-crashes-in-report-dir": 25,
        "~upload-delay-until-check-for-crashes-after-boot": 30, "~retain-crash-report-for-x-seconds": 0,
        "~logcat-tail-count": -1, "~logcat-tail-seconds": 120, "~rate-limiting-time-window": 1440,
        "~rate-limiting-max-reported-crashes": 25, "~rate-limiting-max-reported-crashes-per-process": 20)"
                                             : R"(, "~url": "old")")))
        << version;
  }
  store(object(""));
  make(6);
  EXPECT_EQ(stored(), object(""));
}

TEST_F(PreferencesConfigurationTest, aChangeOfWatchedKeysReachesTheCallbacksInOrder) {
  store(object(""));
  Json::Value heard(Json::objectValue);
  std::promise<void> done;
  const auto configuration = make(2);
  configuration->registerPreferencesChangeCallback([&](void* list) {
    const auto* keys = static_cast<OSSDK::Utils::IListString*>(list);
    for (size_t i = 0; i < keys->size(); ++i) heard[std::string(keys->at(i).view())] = 1;
  });
  configuration->registerPreferencesChangeCallback([&](void*) { done.set_value(); });
  const Json::Value watched = object(R"("~user-agent": 1, "~url": 1, "~upload-cert-verify-peer": 1,
      "~upload-to-server-initial-retry-time-delay": 1, "~upload-to-server-max-retry-time-delay": 1,
      "~upload-delay-until-check-for-crashes-after-boot": 1, "~max-number-of-crashes-in-report-dir": 1,
      "~local-build-enable": 1, "~logcat-enable": 1, "~logcat-tail-count": 1, "~logcat-tail-seconds": 1,
      "~rate-limiting-time-window": 1, "~rate-limiting-max-reported-crashes": 1,
      "~rate-limiting-max-reported-crashes-per-process": 1, "~retain-crash-report-for-x-seconds": 1,
      "~wtf-report-enable": 1, "~invoke-exit-telemetry-enable": 1, "~headers": 1)");
  Json::Value changed = watched;
  const DefaultConfiguration defaults;
  for (const auto& entry : defaults.strings()) changed[entry.first] = 1;  // most are not watched
  store(changed);
  ASSERT_EQ(done.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
  EXPECT_EQ(heard, watched);
}

TEST(PreferencesListenerTest, anEmptyCallbackEndsTheProcessAtTheNextChange) {
  PreferencesConfigurationListenerWrapper listener;
  listener.add(nullptr);
  EXPECT_DEATH(listener.onChanged(nullptr), "Empty preferences change callback");
}

}  // namespace
}  // namespace Torv
