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

android::status_t DiagnosticsCollectorService::onTransact(uint32_t code, const android::Parcel& data,
                                                          android::Parcel* reply, uint32_t flags) {
  const bool wholeTable = code == kGetAllAvailableApplicationStateData;
  if (wholeTable) beginWholeTable();
  const android::status_t result = BnDiagnosticsCollectorService::onTransact(code, data, reply, flags);
  if (wholeTable) endWholeTable();
  return result;
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

void DiagnosticsCollectorService::beginWholeTable() {
  Base::LockGuard lock(mMutex);
  while (mWholeTables == kWholeTablesAtOnce) mWholeTableDone.wait(mMutex);
  ++mWholeTables;
}

void DiagnosticsCollectorService::endWholeTable() {
  Base::LockGuard lock(mMutex);
  --mWholeTables;
  mWholeTableDone.notify_one();
}

}  // namespace Torv::OS::Diagnostics
