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

[[noreturn]] void endProcess(std::string_view name, const std::string& problem) {
  __android_log_assert(nullptr, "ServiceHost", "Cannot register service \"%s\": %s",
                       std::string(name).c_str(), problem.c_str());
}

}  // namespace

ServiceHost::ServiceHost(std::initializer_list<std::pair<std::string_view, Binder> const> services) {
  for (const auto& [name, service] : services) {
    const auto* binder = std::get_if<android::sp<android::IBinder>>(&service);
    if (binder == nullptr) endProcess(name, "an NDK binder has no place here");
    const android::status_t status =
        android::defaultServiceManager()->addService(android::String16(name.data(), name.size()), *binder);
    if (status == android::ALREADY_EXISTS) endProcess(name, "a live service has this name");
    if (status != android::OK) endProcess(name, "the service manager says " + std::to_string(status));
  }
}

void ServiceHost::startThreadPool() {
  android::ProcessState::self()->startThreadPool();
  android::IPCThreadState::self()->joinThreadPool();
}

}  // namespace Torv::OS
