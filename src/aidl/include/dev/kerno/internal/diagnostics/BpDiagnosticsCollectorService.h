#pragma once

#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"

namespace dev::kerno::internal::diagnostics {

// The client's side, made by interface_cast. If the transaction fails, a call returns EX_TRANSACTION_FAILED
// with the transport's status_t and leaves `data` unchanged. Thread-safe.
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
