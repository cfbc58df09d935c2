// The module's preferences: each manager is a view of the runtime directory's preferences file.
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <android/log.h>
#include <ossdk/Preferences.h>

#include "EntryPoint.h"
#include "base/Json.h"
#include "base/Mutex.h"
#include "ossdkhost/PreferencesFile.h"
#include "ossdkhost/PreferencesWatch.h"
#include "runtime/RuntimeDirectory.h"

namespace v4 = OSSDK::Preferences::v4;

namespace {

class PreferencesManager final : public v4::IPreferencesManager {
 public:
  PreferencesManager()
      : mDirectory(platform::runtimeDirectory()), mFile(platform::PreferencesFile::of(mDirectory)) {}

  v4::Status getString(OSSDK::String key, OSSDK::OwnedText* value) override {
    return get(key, &Json::Value::isString, [value](const Json::Value& found) {
      const char* begin = nullptr;
      const char* end = nullptr;
      found.getString(&begin, &end);
      const auto length = static_cast<size_t>(end - begin);
      auto characters = std::make_unique<char[]>(length + 1);
      memcpy(characters.get(), begin, length);
      *value = {characters.release(), length,
                [](const char* owned) { std::unique_ptr<const char[]>(owned).reset(); }};
    });
  }

  v4::Status getUint(OSSDK::String key, uint32_t* value) override {
    return get(key, &Json::Value::isUInt, [value](const Json::Value& found) { *value = found.asUInt(); });
  }

  v4::Status getInt(OSSDK::String key, int32_t* value) override {
    return get(key, &Json::Value::isInt, [value](const Json::Value& found) { *value = found.asInt(); });
  }

  v4::Status getBool(OSSDK::String key, uint8_t* value) override {
    return get(key, &Json::Value::isBool,
               [value](const Json::Value& found) { *value = found.asBool() ? 1 : 0; });
  }

  v4::Status setString(OSSDK::String key, OSSDK::String value) override {
    return set(key, Json::Value(value.data, value.data + value.size));
  }
  v4::Status setUint(OSSDK::String key, uint32_t value) override { return set(key, value); }
  v4::Status setInt(OSSDK::String key, int32_t value) override { return set(key, value); }
  v4::Status setBool(OSSDK::String key, bool value) override { return set(key, value); }

  v4::Status registerListener(v4::IPreferencesListener* listener, OSSDK::Array<OSSDK::String> keys) override {
    const Torv::Base::LockGuard lock(mMutex);
    if (mWatch == nullptr) {
      auto watch = platform::PreferencesWatch::start(mDirectory, mFile);
      if (!watch.ok()) return refuse(watch.error().message());
      mWatch = *std::move(watch);
    }
    std::vector<std::string> names;
    for (const OSSDK::String& key : keys) names.emplace_back(key.view());
    mWatch->add(listener, std::move(names));
    return v4::kOk;
  }

 private:
  template <typename Take>
  v4::Status get(OSSDK::String key, bool (Json::Value::*hasType)() const, const Take& take) {
    const std::shared_ptr<const Json::Value> values = mFile->read();
    if (values == nullptr) return v4::kStoreError;
    const Json::Value* found = Torv::Base::findMember(*values, key.view());
    if (found == nullptr || !(found->*hasType)()) return v4::kNotFound;
    take(*found);
    return v4::kOk;
  }

  v4::Status set(OSSDK::String key, const Json::Value& value) {
    const auto stored = mFile->update([&](Json::Value& values) { values[std::string(key.view())] = value; });
    return stored.ok() ? v4::kOk : refuse(stored.error().message());
  }

  static v4::Status refuse(const std::string& problem) {
    __android_log_print(ANDROID_LOG_ERROR, platform::PreferencesFile::kLogTag, "%s", problem.c_str());
    return v4::kStoreError;
  }

  const std::string mDirectory;
  const std::shared_ptr<platform::PreferencesFile> mFile;
  Torv::Base::Mutex mMutex;
  std::unique_ptr<platform::PreferencesWatch> mWatch GUARDED_BY(mMutex);  // started with the first listener
};

}  // namespace

OSSDK_ENTRY_POINT v4::IPreferencesManager* createPreferencesManager(int version) {
  if (version != v4::kVersion) return nullptr;
  return std::make_unique<PreferencesManager>().release();
}

OSSDK_ENTRY_POINT void destroyPreferencesManager(int version, v4::IPreferencesManager* manager) {
  if (version != v4::kVersion) return;
  std::unique_ptr<PreferencesManager>(static_cast<PreferencesManager*>(manager)).reset();
}
