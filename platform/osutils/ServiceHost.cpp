#include "osutils/ServiceHost.h"

#include <string>

#include <android/log.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <utils/Errors.h>
#include <utils/String16.h>

namespace Torv::OS {
namespace {

constexpr char kTag[] = "ServiceHost";

void add(const std::string& name, const ServiceHost::Binder& service) {
  const auto* binder = std::get_if<android::sp<android::IBinder>>(&service);
  if (binder == nullptr) {
    __android_log_assert(nullptr, kTag, "Cannot register service \"%s\": an NDK binder has no place here",
                         name.c_str());
  }
  const android::status_t status =
      android::defaultServiceManager()->addService(android::String16(name.c_str(), name.size()), *binder);
  if (status == android::ALREADY_EXISTS) {
    __android_log_assert(nullptr, kTag, "Cannot register service \"%s\": a live service has this name",
                         name.c_str());
  }
  if (status != android::OK) {
    __android_log_assert(nullptr, kTag, "Cannot register service \"%s\": the service manager says %d",
                         name.c_str(), status);
  }
}

}  // namespace

ServiceHost::ServiceHost(std::initializer_list<std::pair<std::string_view, Binder> const> services) {
  for (const auto& [name, binder] : services) add(std::string(name), binder);
}

void ServiceHost::startThreadPool() {
  android::ProcessState::self()->startThreadPool();
  android::IPCThreadState::self()->joinThreadPool();
}

}  // namespace Torv::OS
