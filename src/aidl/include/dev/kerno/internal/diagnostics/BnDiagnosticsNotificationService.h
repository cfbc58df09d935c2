#pragma once

#include "dev/kerno/internal/diagnostics/IDiagnosticsNotificationService.h"

namespace dev::kerno::internal::diagnostics {

// The server's side. onTransact() is called on any thread of the binder pool. It ignores the method's status,
// because the call is one-way, and passes on every code: the method decides which codes are events.
class BnDiagnosticsNotificationService : public ::android::BnInterface<IDiagnosticsNotificationService> {
 public:
  ::android::status_t onTransact(uint32_t code, const ::android::Parcel& data, ::android::Parcel* reply,
                                 uint32_t flags = 0) override;
};

}  // namespace dev::kerno::internal::diagnostics
