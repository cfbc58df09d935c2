// The service manager of a host: the directory of sockets, without a process of its own.

#include "parcel/ParcelHeader.h"

#include <chrono>
#include <map>
#include <thread>

#include <binder/IServiceManager.h>
#include <binder/Status.h>
#include <utils/String8.h>

#include "Log.h"
#include "RemoteService.h"
#include "Server.h"
#include "ServiceAddress.h"
#include "base/Mutex.h"
#include "runtime/RuntimeDirectory.h"

namespace android {
namespace {

using Torv::Base::LockGuard;

// getService() asks this often, and for this long; a service that is being started takes a moment.
constexpr std::chrono::milliseconds kPollPause{100};
constexpr int kPolls = 50;

std::string text(const String16& name) {
  return String8(name).string();
}

class ServiceManager final : public IServiceManager {
 public:
  sp<IBinder> getService(const String16& name) const override {
    sp<IBinder> service = checkService(name);
    if (service == nullptr) ALOGW("waiting for service %s", text(name).c_str());
    for (int i = 0; service == nullptr && i < kPolls; ++i) {
      std::this_thread::sleep_for(kPollPause);
      service = checkService(name);
    }
    return service;
  }

  sp<IBinder> checkService(const String16& name) const override {
    const auto address = platform::binder::addressOf(text(name));
    if (!address.ok()) return nullptr;
    if (sp<IBinder> local = localService(address->path()); local != nullptr) return local;
    return platform::binder::proxyFor(*address);
  }

  status_t addService(const String16& name, const sp<IBinder>& service, bool /*allowIsolated*/,
                      int /*dumpsysFlags*/) override {
    const auto address = platform::binder::addressOf(text(name));
    if (!address.ok()) return refuse(name, binder::Status::EX_ILLEGAL_ARGUMENT, address.error().message());
    BBinder* const local = service != nullptr ? service->localBinder() : nullptr;
    if (local == nullptr) {
      return refuse(name, binder::Status::EX_ILLEGAL_ARGUMENT, "it is not an object of this process");
    }
    if (const auto lock = platform::holdServiceLock(platform::runtimeDirectory()); !lock.ok()) {
      return refuse(name, PERMISSION_DENIED, lock.error().message());
    }
    if (localService(address->path()) != nullptr) {
      return refuse(name, ALREADY_EXISTS, "this process has a service of that name");
    }
    auto listener = platform::binder::listenAt(*address);
    if (!listener.ok()) return refuse(name, PERMISSION_DENIED, listener.error().message());
    {
      const LockGuard guard(mMutex);
      mLocal[address->path()] = service;
    }
    platform::binder::processServer().serve(text(name), local, std::move(*listener));
    return OK;
  }

  Vector<String16> listServices(int /*dumpsysFlags*/) override {
    Vector<String16> live;
    for (const std::string& name : platform::binder::publishedNames()) {
      const String16 wide(name.c_str());
      if (checkService(wide) != nullptr) live.add(wide);
    }
    return live;
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

 private:
  static status_t refuse(const String16& name, status_t status, const std::string& why) {
    ALOGE("cannot publish \"%s\": %s", text(name).c_str(), why.c_str());
    return status;
  }

  sp<IBinder> localService(const std::string& path) const {
    const LockGuard guard(mMutex);
    const auto entry = mLocal.find(path);
    return entry != mLocal.end() ? entry->second : nullptr;
  }

  mutable Torv::Base::Mutex mMutex;
  // The services of this process by the paths of their sockets. Looking one up gives the object itself.
  std::map<std::string, sp<IBinder>> mLocal GUARDED_BY(mMutex);
};

}  // namespace

IServiceManager::IServiceManager() = default;

IServiceManager::~IServiceManager() = default;

const String16& IServiceManager::getInterfaceDescriptor() const {
  static const auto& kDescriptor = *new String16("android.os.IServiceManager");
  return kDescriptor;
}

sp<IServiceManager> defaultServiceManager() {
  static const auto& kManager = *new sp<IServiceManager>(new ServiceManager());
  return kManager;
}

}  // namespace android
