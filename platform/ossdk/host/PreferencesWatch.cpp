#include "ossdkhost/PreferencesWatch.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "base/Json.h"

namespace platform {

using android::base::unique_fd;
using Torv::Base::LockGuard;

namespace {

class KeyList : public OSSDK::Utils::IListString {
 public:
  explicit KeyList(const std::vector<std::string>& keys) : mKeys(keys) {}

  size_t size() const override { return mKeys.size(); }
  OSSDK::String at(size_t index) const override {
    return index < mKeys.size() ? OSSDK::String(mKeys[index]) : OSSDK::String();
  }

 private:
  const std::vector<std::string>& mKeys;
};

// Returns those of `keys` whose values differ between the two objects, in the order of `keys`.
std::vector<std::string> changedKeys(const std::vector<std::string>& keys, const Json::Value& before,
                                     const Json::Value& after) {
  std::vector<std::string> changed;
  std::copy_if(keys.begin(), keys.end(), std::back_inserter(changed), [&](const std::string& key) {
    const Json::Value* old = Torv::Base::findMember(before, key);
    const Json::Value* current = Torv::Base::findMember(after, key);
    if (old == nullptr || current == nullptr) return old != current;
    return *old != *current;
  });
  return changed;
}

}  // namespace

android::base::Result<std::unique_ptr<PreferencesWatch>> PreferencesWatch::start(
    const std::string& directory, std::shared_ptr<PreferencesFile> file) {
  // The file is replaced, written in place, or removed; IN_IGNORED, which always comes, reports the removal
  // of the directory.
  constexpr uint32_t kEvents = IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_DELETE | IN_ONLYDIR;
  unique_fd inotify(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  unique_fd wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!inotify.ok() || !wakeUp.ok() || inotify_add_watch(inotify.get(), directory.c_str(), kEvents) < 0) {
    return android::base::ErrnoError() << "cannot watch " << directory;
  }
  return std::unique_ptr<PreferencesWatch>(
      new PreferencesWatch(std::move(file), std::move(inotify), std::move(wakeUp)));
}

PreferencesWatch::PreferencesWatch(std::shared_ptr<PreferencesFile> file, unique_fd inotify, unique_fd wakeUp)
    : mFile(std::move(file)), mInotify(std::move(inotify)), mWakeUp(std::move(wakeUp)), mSeen(mFile->read()) {
  mThread = std::thread([this] { run(); });
  pthread_setname_np(mThread.native_handle(), "OsSdkPrefs");
}

PreferencesWatch::~PreferencesWatch() {
  {
    const LockGuard lock(mMutex);
    mStopping = true;
  }
  eventfd_write(mWakeUp.get(), 1);
  mThread.join();
}

void PreferencesWatch::add(IPreferencesListener* listener, std::vector<std::string> keys) {
  {
    const LockGuard lock(mMutex);
    mRegistrations.push_back({listener, std::move(keys)});
  }
  eventfd_write(mWakeUp.get(), 1);
}

void PreferencesWatch::run() {
  bool watching = true;
  while (true) {
    pollfd sources[] = {{mWakeUp.get(), POLLIN, 0}, {watching ? mInotify.get() : -1, POLLIN, 0}};
    if (poll(sources, 2, -1) < 0 && errno != EINTR) return;
    eventfd_t ignored = 0;
    eventfd_read(mWakeUp.get(), &ignored);
    {
      const LockGuard lock(mMutex);
      if (mStopping) return;
    }
    tellConnected();
    if ((sources[1].revents & POLLIN) == 0) continue;
    const Events events = takeEvents();
    if (events.touched || events.gone) tellChanges();
    if (events.gone) tellDisconnected();
    watching = !events.gone;
  }
}

PreferencesWatch::Events PreferencesWatch::takeEvents() {
  alignas(inotify_event) char buffer[4096];
  Events events;
  ssize_t length = 0;
  while ((length = ::read(mInotify.get(), buffer, sizeof(buffer))) > 0) {
    for (const char* at = buffer; at < buffer + length;) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      at += sizeof(inotify_event) + event->len;
      events.gone |= (event->mask & IN_IGNORED) != 0;
      const bool isFile = event->len > 0 && std::string_view(event->name) == PreferencesFile::kName;
      events.touched |= isFile || (event->mask & IN_Q_OVERFLOW) != 0;
    }
  }
  return events;
}

void PreferencesWatch::tellConnected() {
  std::vector<IPreferencesListener*> newcomers;
  {
    const LockGuard lock(mMutex);
    for (Registration& registration : mRegistrations) {
      if (!std::exchange(registration.connected, true)) newcomers.push_back(registration.listener);
    }
  }
  for (IPreferencesListener* listener : newcomers) listener->onConnected();
}

void PreferencesWatch::tellChanges() {
  const std::shared_ptr<const Json::Value> current = mFile->read();
  if (current == nullptr || mSeen == current) return;  // if it is unreadable for now, nothing has changed
  const Json::Value none(Json::objectValue);
  for (const Registration& registration : registrations()) {
    const std::vector<std::string> changed =
        changedKeys(registration.keys, mSeen != nullptr ? *mSeen : none, *current);
    if (changed.empty()) continue;
    KeyList list(changed);
    registration.listener->onChanged(&list);
  }
  mSeen = current;
}

// A copy, because listeners are called without the lock.
std::vector<PreferencesWatch::Registration> PreferencesWatch::registrations() {
  const LockGuard lock(mMutex);
  return mRegistrations;
}

void PreferencesWatch::tellDisconnected() {
  for (const Registration& registration : registrations()) registration.listener->onDisconnected();
}

}  // namespace platform
