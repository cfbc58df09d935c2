// The module's preferences: each manager is a view of the runtime directory's preferences file.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/unique_fd.h>
#include <android/log.h>
#include <ossdk/Preferences.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "base/Json.h"
#include "base/Mutex.h"
#include "ossdkhost/PreferencesFile.h"
#include "runtime/RuntimeDirectory.h"

namespace v4 = OSSDK::Preferences::v4;
using android::base::unique_fd;
using platform::PreferencesFile;

namespace {

// Lends the keys to the listener for one call.
class KeyList final : public OSSDK::Utils::IListString {
 public:
  explicit KeyList(const std::vector<std::string>& keys) : mKeys(keys) {}

  size_t size() const override { return mKeys.size(); }
  OSSDK::String at(size_t index) const override {
    return index < mKeys.size() ? OSSDK::String(mKeys[index]) : OSSDK::String();
  }

 private:
  const std::vector<std::string>& mKeys;
};

bool isChanged(const std::string& key, const Json::Value& before, const Json::Value& after) {
  const Json::Value* old = Torv::Base::findMember(before, key);
  const Json::Value* current = Torv::Base::findMember(after, key);
  return old != nullptr && current != nullptr ? *old != *current : old != current;
}

// A listener's subscription: a thread that sleeps in the kernel until the directory of the file changes, and
// then tells the listener which of its keys have changed.
class Subscription {
 public:
  // `inotify` has begun to watch the directory as its watch number `watch`.
  Subscription(unique_fd inotify, int watch, PreferencesFile& file, v4::IPreferencesListener* listener,
               OSSDK::Array<OSSDK::String> keys)
      : mInotify(std::move(inotify)), mWatch(watch), mFile(file), mListener(listener) {
    for (const OSSDK::String& key : keys) mKeys.emplace_back(key.view());
    // After the watch has begun, so that no change is missed in between.
    if (const auto values = mFile.read()) mSeen = values;
    mThread = std::thread([this] { run(); });
    pthread_setname_np(mThread.native_handle(), "OsSdkPrefs");
  }

  // Waits for a running call of the listener.
  ~Subscription() {
    mStopping = true;
    inotify_rm_watch(mInotify.get(), mWatch);  // the kernel reports it, which ends the thread
    mThread.join();
  }

 private:
  void run() {
    mListener->onConnected();
    while (waitForChange()) reportChanges();
    if (mStopping) return;
    reportChanges();
    mListener->onDisconnected();
  }

  // Waits until the file may have changed. Returns false if the watch has ended, because the directory is
  // gone or the destructor runs.
  bool waitForChange() {
    alignas(inotify_event) char buffer[4096];
    bool isTouched = false;
    while (!isTouched) {
      const ssize_t length = TEMP_FAILURE_RETRY(::read(mInotify.get(), buffer, sizeof(buffer)));
      if (length <= 0) return false;
      for (const char* at = buffer; at < buffer + length;) {
        const auto* event = reinterpret_cast<const inotify_event*>(at);
        if ((event->mask & IN_IGNORED) != 0) return false;
        // An event without a name says that the kernel has dropped events.
        isTouched |= event->len == 0 || std::string_view(event->name) == PreferencesFile::kName;
        at += sizeof(inotify_event) + event->len;
      }
    }
    return true;
  }

  // Tells the listener of those of its keys whose values are others than at the last report, if there are
  // any.
  void reportChanges() {
    const std::shared_ptr<const Json::Value> current = mFile.read();
    if (current == nullptr) return;  // if the file cannot be read for now, nothing has changed
    std::vector<std::string> changed;
    std::copy_if(mKeys.begin(), mKeys.end(), std::back_inserter(changed),
                 [&](const std::string& key) { return isChanged(key, *mSeen, *current); });
    mSeen = current;
    if (changed.empty()) return;
    KeyList list(changed);
    mListener->onChanged(&list);
  }

  const unique_fd mInotify;
  const int mWatch;
  PreferencesFile& mFile;
  v4::IPreferencesListener* const mListener;
  std::vector<std::string> mKeys;
  std::shared_ptr<const Json::Value> mSeen = std::make_shared<const Json::Value>();  // what was reported last
  std::atomic<bool> mStopping{false};
  std::thread mThread;
};

class PreferencesManager final : public v4::IPreferencesManager {
 public:
  PreferencesManager() : mFile(PreferencesFile::of(platform::runtimeDirectory())) {}

  v4::Status getString(OSSDK::String key, OSSDK::OwnedText* value) override {
    std::string text;
    const v4::Status status = get<std::string>(key, &text);
    if (status != v4::kOk) return status;
    auto characters = std::make_unique<char[]>(text.size());
    text.copy(characters.get(), text.size());
    *value = {characters.release(), text.size(),
              [](const char* owned) { std::unique_ptr<const char[]>(owned).reset(); }};
    return v4::kOk;
  }
  v4::Status getUint(OSSDK::String key, uint32_t* value) override { return get<Json::UInt>(key, value); }
  v4::Status getInt(OSSDK::String key, int32_t* value) override { return get<Json::Int>(key, value); }
  v4::Status getBool(OSSDK::String key, uint8_t* value) override { return get<bool>(key, value); }

  v4::Status setString(OSSDK::String key, OSSDK::String value) override {
    return set(key, Json::Value(value.data, value.data + value.size));
  }
  v4::Status setUint(OSSDK::String key, uint32_t value) override { return set(key, value); }
  v4::Status setInt(OSSDK::String key, int32_t value) override { return set(key, value); }
  v4::Status setBool(OSSDK::String key, bool value) override { return set(key, value); }

  v4::Status registerListener(v4::IPreferencesListener* listener, OSSDK::Array<OSSDK::String> keys) override {
    // The file is replaced, written in place, or removed.
    constexpr uint32_t kEvents = IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_DELETE | IN_ONLYDIR;
    unique_fd inotify(inotify_init1(IN_CLOEXEC));
    const int watch =
        inotify.ok() ? inotify_add_watch(inotify.get(), mFile.directory().c_str(), kEvents) : -1;
    if (watch < 0) return refuse("cannot watch " + mFile.directory() + ": " + strerror(errno));
    std::list<Subscription> started;
    started.emplace_back(std::move(inotify), watch, mFile, listener, keys);
    const Torv::Base::LockGuard lock(mMutex);
    mSubscriptions.splice(mSubscriptions.end(), started);
    return v4::kOk;
  }

 private:
  // Leaves `value` as it is if the key is missing or its value is not a T.
  template <typename T, typename Out>
  v4::Status get(OSSDK::String key, Out* value) {
    const std::shared_ptr<const Json::Value> values = mFile.read();
    if (values == nullptr) return v4::kStoreError;
    const Json::Value* found = Torv::Base::findMember(*values, key.view());
    if (found == nullptr || !found->is<T>()) return v4::kNotFound;
    *value = found->as<T>();
    return v4::kOk;
  }

  v4::Status set(OSSDK::String key, const Json::Value& value) {
    const auto stored = mFile.update([&](Json::Value& values) { values[std::string(key.view())] = value; });
    return stored.ok() ? v4::kOk : refuse(stored.error().message());
  }

  static v4::Status refuse(const std::string& problem) {
    __android_log_print(ANDROID_LOG_ERROR, PreferencesFile::kLogTag, "%s", problem.c_str());
    return v4::kStoreError;
  }

  PreferencesFile& mFile;
  Torv::Base::Mutex mMutex;
  std::list<Subscription> mSubscriptions GUARDED_BY(mMutex);  // end with the manager
};

}  // namespace

OSSDK_ENTRY_POINT v4::IPreferencesManager* createPreferencesManager(int version) {
  return version == v4::kVersion ? std::make_unique<PreferencesManager>().release() : nullptr;
}

OSSDK_ENTRY_POINT void destroyPreferencesManager(int version, v4::IPreferencesManager* manager) {
  if (version != v4::kVersion) return;
  std::unique_ptr<PreferencesManager>(static_cast<PreferencesManager*>(manager)).reset();
}
