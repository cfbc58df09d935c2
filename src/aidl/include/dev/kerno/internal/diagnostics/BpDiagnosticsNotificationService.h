#pragma once

#include "dev/kerno/internal/diagnostics/IDiagnosticsNotificationService.h"

namespace dev::kerno::internal::diagnostics {

// The client's side, made by interface_cast. It returns when the call is sent. Thread-safe.
class BpDiagnosticsNotificationService : public ::android::BpInterface<IDiagnosticsNotificationService> {
 public:
  explicit BpDiagnosticsNotificationService(const ::android::sp<::android::IBinder>& remote);

  ::android::binder::Status notifySystemEvent(IDiagnosticsNotificationEventCode code,
                                              const ::android::os::PersistableBundle& data) override;
};

}  // namespace dev::kerno::internal::diagnostics
