#pragma once

#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"

namespace dev::kerno::internal::diagnostics {

// The client's side, made by interface_cast. A failed transaction is a status with EX_TRANSACTION_FAILED that
// holds the transport's status_t; `data` is then as it was.
class BpDiagnosticsCollectorService : public ::android::BpInterface<IDiagnosticsCollectorService> {
 public:
  explicit BpDiagnosticsCollectorService(const ::android::sp<::android::IBinder>& remote);

  ::android::binder::Status getApplicationStateDataForProcess(
      int32_t pid, const ::android::String16& name, ::android::os::PersistableBundle* data) override;
  ::android::binder::Status getAllAvailableApplicationStateData(
      ::android::os::PersistableBundle* data) override;
  ::android::binder::Status getSystemContextData(::android::os::PersistableBundle* data) override;
};

}  // namespace dev::kerno::internal::diagnostics
