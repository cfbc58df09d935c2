// The binder service "DiagnosticsNotificationService", which system components tell about system events. The
// contract in AIDL is android/aidl/…/IDiagnosticsNotificationService.aidl.
#pragma once

#include "dev/kerno/internal/diagnostics/BinderHeaders.h"
#include "dev/kerno/internal/diagnostics/IDiagnosticsNotificationEventCode.h"

namespace dev::kerno::internal::diagnostics {

// One call, which does not wait for the service. It may be made from any thread and by any process.
class IDiagnosticsNotificationService : public ::android::IInterface {
 public:
  DECLARE_META_INTERFACE(DiagnosticsNotificationService)

  // The name in the service manager.
  static constexpr char kServiceName[] = "DiagnosticsNotificationService";

  // The codes of the transactions. They are part of the wire format: never change or reuse one.
  enum Transaction : uint32_t {
    kNotifySystemEvent = ::android::IBinder::FIRST_CALL_TRANSACTION,
  };

  // Tells the service about an event. One-way: the status only says whether the call was sent. `data` is not
  // used.
  virtual ::android::binder::Status notifySystemEvent(IDiagnosticsNotificationEventCode code,
                                                      const ::android::os::PersistableBundle& data) = 0;
};

}  // namespace dev::kerno::internal::diagnostics
