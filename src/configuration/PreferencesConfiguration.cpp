#include "configuration/PreferencesConfiguration.h"

#include <iterator>
#include <utility>

#include <android/log.h>

#include "ConfigurationLog.h"
#include "configuration/ConfigurationKeys.h"
#include "sdkloader/OsSdkLoader.h"

namespace Torv {
namespace {

namespace keys = ConfigurationKeys;
namespace v4 = OSSDK::Preferences::v4;

OS::OsSdkFunction<v4::CreatePreferencesManager> gCreatePreferencesManager(v4::kCreatePreferencesManager);
OS::OsSdkFunction<v4::DestroyPreferencesManager> gDestroyPreferencesManager(v4::kDestroyPreferencesManager);

// A store with this version or a lower one is reset.
constexpr int32_t kLastResetVersion = 4;
constexpr int32_t kNoVersion = -1;

// In the order in which they are subscribed.
constexpr const char* kWatchedKeys[] = {
    keys::kUserAgent,
    keys::kUrl,
    keys::kUploadCertVerifyPeer,
    keys::kUploadInitialRetryDelay,
    keys::kUploadMaxRetryDelay,
    keys::kUploadDelayAfterBoot,
    keys::kMaxCrashesInReportDir,
    keys::kLocalBuildEnable,
    keys::kLogcatEnable,
    keys::kLogcatTailCount,
    keys::kLogcatTailSeconds,
    keys::kRateLimitTimeWindow,
    keys::kRateLimitMaxCrashes,
    keys::kRateLimitMaxCrashesPerProcess,
    keys::kRetainReportFor,
    keys::kWtfReportEnable,
    keys::kInvokeExitTelemetryEnable,
    keys::kHeaders,
};

// The keys that a reset writes, in this order.
constexpr const char* kResetStrings[] = {keys::kUserAgent, keys::kUrl, keys::kHeaders, keys::kReportSource,
                                         keys::kReportSourceRef};
constexpr const char* kResetBools[] = {keys::kLocalBuildEnable, keys::kLogcatEnable,
                                       keys::kUploadCertVerifyPeer, keys::kWtfReportEnable,
                                       keys::kInvokeExitTelemetryEnable};
constexpr const char* kResetUints[] = {keys::kUploadInitialRetryDelay, keys::kUploadMaxRetryDelay,
                                       keys::kUploadDelayAfterBoot, keys::kMaxCrashesInReportDir,
                                       keys::kRetainReportFor};
constexpr const char* kResetInts[] = {keys::kLogcatTailCount, keys::kLogcatTailSeconds,
                                      keys::kRateLimitTimeWindow, keys::kRateLimitMaxCrashes,
                                      keys::kRateLimitMaxCrashesPerProcess};

// Returns null if there is no SDK or it creates no manager.
std::shared_ptr<v4::IPreferencesManager> createManager() {
  auto* create = gCreatePreferencesManager.get();
  v4::IPreferencesManager* manager = create != nullptr ? create(v4::kVersion) : nullptr;
  if (manager == nullptr) return nullptr;
  return {manager, [](v4::IPreferencesManager* last) {
            if (auto* destroy = gDestroyPreferencesManager.get()) destroy(v4::kVersion, last);
          }};
}

std::string copyAndRelease(const OSSDK::OwnedText& text) {
  std::string copy(text.characters, text.length);
  if (text.release != nullptr) text.release(text.characters);
  return copy;
}

}  // namespace

void PreferencesConfigurationListenerWrapper::add(Callback callback) {
  const Base::LockGuard lock(mMutex);
  mCallbacks.push_back(std::move(callback));
}

void PreferencesConfigurationListenerWrapper::onChanged(OSSDK::Utils::IListString* changedKeys) {
  std::vector<Callback> callbacks;
  {
    const Base::LockGuard lock(mMutex);
    callbacks = mCallbacks;
  }
  for (const Callback& callback : callbacks) {
    if (callback == nullptr) {
      __android_log_assert(nullptr, kConfigurationLogTag, "Empty preferences change callback");
    }
    callback(changedKeys);
  }
}

PreferencesConfiguration::PreferencesConfiguration(std::unique_ptr<IConfiguration> next, unsigned short flags)
    : mFlags(flags), mNext(std::move(next)) {
  if ((mFlags & (kLazy | kKeepStore)) == kKeepStore) setupPreferencesStoreManager();
}

// The manager goes first, because the store calls the listener as long as it exists.
PreferencesConfiguration::~PreferencesConfiguration() {
  mManager.reset();
}

std::string PreferencesConfiguration::getString(const std::string& key) const {
  const auto manager = getPreferencesStoreManager();
  OSSDK::OwnedText text;
  if (manager == nullptr || manager->getString(key, &text) != v4::kOk) return mNext->getString(key);
  return copyAndRelease(text);
}

uint16_t PreferencesConfiguration::getUint(const std::string& key) const {
  const auto manager = getPreferencesStoreManager();
  uint32_t value = 0;
  if (manager == nullptr || manager->getUint(key, &value) != v4::kOk) return mNext->getUint(key);
  return static_cast<uint16_t>(value);
}

int32_t PreferencesConfiguration::getInt(const std::string& key) const {
  const auto manager = getPreferencesStoreManager();
  int32_t value = 0;
  if (manager == nullptr || manager->getInt(key, &value) != v4::kOk) return mNext->getInt(key);
  return value;
}

bool PreferencesConfiguration::getBool(const std::string& key) const {
  const auto manager = getPreferencesStoreManager();
  uint8_t value = 0;
  if (manager == nullptr || manager->getBool(key, &value) != v4::kOk) return mNext->getBool(key);
  return (value & 1) != 0;
}

std::map<std::string, std::string> PreferencesConfiguration::getLocalStrMap(const std::string& key) const {
  return mNext->getLocalStrMap(key);
}

void PreferencesConfiguration::registerPreferencesChangeCallback(std::function<void(void*)> callback) {
  if (callback == nullptr) {
    mListener.add(nullptr);
  } else {
    mListener.add([callback = std::move(callback)](OSSDK::Utils::IListString* keys) { callback(keys); });
  }
}

std::shared_ptr<v4::IPreferencesManager> PreferencesConfiguration::getPreferencesStoreManager() const {
  if (mManager != nullptr) return mManager;
  if ((mFlags & kKeepStore) == 0) return createManager();
  setupPreferencesStoreManager();
  return mManager;
}

void PreferencesConfiguration::setupPreferencesStoreManager() const {
  mManager = createManager();  // cached before the version check, because its look-up needs a manager too
  if (mManager == nullptr) return;
  if ((mFlags & kKeepStore) != 0) {
    const std::vector<OSSDK::String> watched(std::begin(kWatchedKeys), std::end(kWatchedKeys));
    mManager->registerListener(&mListener, {watched.data(), watched.size()});
  }
  if ((mFlags & kCheckVersion) != 0) checkKeyValueVersionAndOverwriteIfNeeded();
}

void PreferencesConfiguration::checkKeyValueVersionAndOverwriteIfNeeded() const {
  const int32_t version = getInt(keys::kKeyValueVersion);
  if (version == kNoVersion || version > kLastResetVersion) return;
  for (const char* key : kResetStrings) {
    getPreferencesStoreManager()->setString(key, mNext->getString(key));
  }
  for (const char* key : kResetBools) getPreferencesStoreManager()->setBool(key, mNext->getBool(key));
  for (const char* key : kResetUints) getPreferencesStoreManager()->setUint(key, mNext->getUint(key));
  for (const char* key : kResetInts) getPreferencesStoreManager()->setInt(key, mNext->getInt(key));
}

}  // namespace Torv
