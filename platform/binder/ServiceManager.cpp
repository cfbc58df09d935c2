// The service manager of a host: the directory of sockets, without a process of its own.

#include "parcel/ParcelHeader.h"

#include <chrono>
#include <map>
#include <mutex>
#include <thread>

#include <android/log.h>
#include <binder/IServiceManager.h>
#include <binder/Status.h>
#include <utils/String8.h>

#include "Fork.h"
#include "Log.h"
#include "RemoteService.h"
#include "Server.h"
#include "ServiceDirectory.h"

namespace android {
namespace {

using platform::binder::logError;
using platform::binder::logWarning;

// getService() asks this often, and for this long; a service that is being started takes a moment.
constexpr std::chrono::milliseconds kPollPause{100};
constexpr int kPolls = 50;

std::string text(const String16& name) {
  return String8(name).string();
}

// The services of this process, by the paths of their sockets: looked up, they are the objects themselves.
struct LocalServices {
  std::mutex mutex;
  std::map<std::string, sp<IBinder>> services;  // guarded by mutex
};

LocalServices& localServices() {
  static platform::binder::PerProcess<LocalServices> services;
  return services.get();
}

sp<IBinder> localService(const std::string& path) {
  LocalServices& local = localServices();
  std::lock_guard guard(local.mutex);
  const auto entry = local.services.find(path);
  return entry != local.services.end() ? entry->second : nullptr;
}

class ServiceManager final : public IServiceManager {
 public:
  sp<IBinder> getService(const String16& name) const override {
    sp<IBinder> service = checkService(name);
    for (int i = 0; service == nullptr && i < kPolls; ++i) {
      if (i == 0) logWarning("waiting for service %s", text(name).c_str());
      std::this_thread::sleep_for(kPollPause);
      service = checkService(name);
    }
    return service;
  }

  sp<IBinder> checkService(const String16& name) const override {
    const auto address = platform::binder::addressOf(text(name));
    if (!address) return nullptr;
    if (sp<IBinder> local = localService(address->path()); local != nullptr) return local;
    return platform::binder::proxyFor(*address);
  }

  status_t addService(const String16& name, const sp<IBinder>& service, bool /*allowIsolated*/,
                      int /*dumpsysFlags*/) override {
    const std::string nameText = text(name);
    const auto address = platform::binder::addressOf(nameText);
    BBinder* const local = service != nullptr ? service->localBinder() : nullptr;
    if (!address || local == nullptr) {
      logError("cannot publish \"%s\": %s", nameText.c_str(),
               address ? "it is not an object of this process"
                       : "a service's name is 1 to 127 letters, digits and _./- that fit a socket's name");
      return binder::Status::EX_ILLEGAL_ARGUMENT;
    }
    auto publication = platform::binder::publish(*address);
    if (publication.status != OK) {
      logError("cannot publish \"%s\": %s", nameText.c_str(), publication.error.c_str());
      return publication.status;
    }
    platform::binder::processServer().serve(nameText, local, std::move(publication.listener));
    LocalServices& services = localServices();
    std::lock_guard guard(services.mutex);
    services.services[address->path()] = service;
    return OK;
  }

  Vector<String16> listServices(int /*dumpsysFlags*/) override {
    Vector<String16> names;
    for (const std::string& name : platform::binder::liveServices()) names.add(String16(name.c_str()));
    return names;
  }

  sp<IBinder> waitForService(const String16& name) override {
    for (;;) {
      if (sp<IBinder> service = checkService(name); service != nullptr) return service;
      std::this_thread::sleep_for(kPollPause);
    }
  }

  // There is no manifest to declare services in.
  bool isDeclared(const String16& /*name*/) override { return false; }

 protected:
  IBinder* onAsBinder() override { return nullptr; }
};

struct DefaultManager {
  std::mutex mutex;
  sp<IServiceManager> manager;  // guarded by mutex
};

DefaultManager& defaultManager() {
  static auto& holder = *new DefaultManager();
  return holder;
}

}  // namespace

IServiceManager::IServiceManager() = default;

IServiceManager::~IServiceManager() = default;

const String16& IServiceManager::getInterfaceDescriptor() const {
  static const auto& kDescriptor = *new String16("android.os.IServiceManager");
  return kDescriptor;
}

sp<IServiceManager> defaultServiceManager() {
  DefaultManager& holder = defaultManager();
  std::lock_guard guard(holder.mutex);
  if (holder.manager == nullptr) holder.manager = new ServiceManager();
  return holder.manager;
}

void setDefaultServiceManager(const sp<IServiceManager>& sm) {
  DefaultManager& holder = defaultManager();
  std::lock_guard guard(holder.mutex);
  if (holder.manager != nullptr) {
    __android_log_assert(nullptr, platform::binder::kLogTag,
                         "setDefaultServiceManager() comes after a first use of the default one");
  }
  holder.manager = sm;
}

}  // namespace android
