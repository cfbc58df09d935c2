#pragma once

#include "dev/kerno/internal/diagnostics/IDiagnosticsNotificationService.h"

namespace dev::kerno::internal::diagnostics {

// The server's side, called on any thread of the binder pool. The method's status is dropped, as nobody waits
// for it. The code is passed on as it came: the method decides which values it takes.
class BnDiagnosticsNotificationService : public ::android::BnInterface<IDiagnosticsNotificationService> {
 public:
  ::android::status_t onTransact(uint32_t code, const ::android::Parcel& data, ::android::Parcel* reply,
                                 uint32_t flags = 0) override;
};

}  // namespace dev::kerno::internal::diagnostics
