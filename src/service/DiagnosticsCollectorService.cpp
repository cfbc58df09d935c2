#include "service/DiagnosticsCollectorService.h"

#include <utility>

#include <android/log.h>

#include "LogTags.h"

namespace Torv::OS::Diagnostics {

using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;

DiagnosticsCollectorService::DiagnosticsCollectorService(
    std::shared_ptr<DiagnosticsCollectorServiceHandler> handler)
    : mHandler(std::move(handler)) {}

Status DiagnosticsCollectorService::getApplicationStateDataForProcess(int32_t pid, const String16& /*name*/,
                                                                      PersistableBundle* data) {
  return handler().getApplicationStateDataForProcess(pid, data);
}

Status DiagnosticsCollectorService::getAllAvailableApplicationStateData(PersistableBundle* data) {
  return handler().getAllAvailableApplicationStateData(data);
}

Status DiagnosticsCollectorService::getSystemContextData(PersistableBundle* data) {
  return handler().getSystemContextData(data);
}

void DiagnosticsCollectorService::onCreate() {
  handler().startCleanupPeriodicTask();
  handler().startSystemStateCollectorThread();
}

void DiagnosticsCollectorService::onDestroy() {
  handler().stopCleanupPeriodicTask();
  handler().stopSystemStateCollectorThread();
}

DiagnosticsCollectorServiceHandler& DiagnosticsCollectorService::handler() const {
  if (mHandler == nullptr) {
    __android_log_assert(nullptr, kServiceTag,
                         "The service has no handler; an earlier message says what could not be created");
  }
  return *mHandler;
}

}  // namespace Torv::OS::Diagnostics
