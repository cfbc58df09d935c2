#include "service/DiagnosticsNotificationService.h"

#include <utility>

#include <android/log.h>
#include <binder/IPCThreadState.h>

#include "LogTags.h"

namespace Torv::OS::Diagnostics {

using android::binder::Status;
using android::os::PersistableBundle;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode;
using Telemetry::EventFlow;
using Telemetry::EventName;
using Telemetry::EventType;

namespace {

constexpr uid_t kRootUid = 0;
constexpr uid_t kSystemUid = 1000;

// A negative code becomes a large unsigned number, so one comparison refuses it too.
bool isEvent(int32_t code) {
  return static_cast<uint32_t>(code) <=
         static_cast<uint32_t>(IDiagnosticsNotificationEventCode::APPLICATION_NOT_RESPONDING);
}

}  // namespace

DiagnosticsNotificationService::DiagnosticsNotificationService(
    std::vector<std::shared_ptr<Observer>> observers)
    : Producer(std::move(observers)), DiagnosticsCollectorTelemetry(/*enabled=*/true) {}

Status DiagnosticsNotificationService::notifySystemEvent(IDiagnosticsNotificationEventCode code,
                                                         const PersistableBundle& /*data*/) {
  const auto eventId = static_cast<int32_t>(code);
  reportDefaultEvent(EventName::NotifyStart, EventType::Start, EventFlow::Notification);
  __android_log_print(ANDROID_LOG_INFO, kServiceTag,
                      "DiagnosticsNotificationService: Received notification of event: %d", eventId);
  if (!isEvent(eventId)) {
    reportDefaultErrorEvent(
        EventName::NotifyError, EventType::Error, EventFlow::Notification,
        "Diagnostics Notification Service detected invalid system event. Failed to notify the observers.");
    __android_log_print(ANDROID_LOG_ERROR, kServiceTag, "Unexpected system event: %d", eventId);
    return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
  }
  for (const std::shared_ptr<Observer>& observer : observers()) {
    if (observer == nullptr) __android_log_assert(nullptr, kServiceTag, "An observer of events is missing");
    observer->onEvent(eventId, std::nullopt);
  }
  reportDefaultEvent(EventName::NotifySuccess, EventType::Success, EventFlow::Notification);
  return Status::ok();
}

android::status_t DiagnosticsNotificationService::dump(int /*fd*/,
                                                       const android::Vector<android::String16>& /*args*/) {
  return android::OK;
}

bool DiagnosticsNotificationService::allowedCallerUID() {
  const uid_t caller = android::IPCThreadState::self()->getCallingUid();
  return caller == kSystemUid || caller == kRootUid;
}

}  // namespace Torv::OS::Diagnostics
