// The binder service "DiagnosticsNotificationService": system components tell it that something happened. The
// contract in AIDL is android/aidl/…/IDiagnosticsNotificationService.aidl.
#pragma once

#include "dev/kerno/internal/diagnostics/BinderHeaders.h"
#include "dev/kerno/internal/diagnostics/IDiagnosticsNotificationEventCode.h"

namespace dev::kerno::internal::diagnostics {

class IDiagnosticsNotificationService : public ::android::IInterface {
 public:
  DECLARE_META_INTERFACE(DiagnosticsNotificationService)

  // What the service manager knows it by.
  static constexpr char kServiceName[] = "DiagnosticsNotificationService";

  enum Transaction : uint32_t {
    kNotifySystemEvent = ::android::IBinder::FIRST_CALL_TRANSACTION,
  };

  // One-way: a caller learns whether the call could be sent, never what became of it. `data` is carried and
  // not used.
  virtual ::android::binder::Status notifySystemEvent(IDiagnosticsNotificationEventCode code,
                                                      const ::android::os::PersistableBundle& data) = 0;
};

}  // namespace dev::kerno::internal::diagnostics
