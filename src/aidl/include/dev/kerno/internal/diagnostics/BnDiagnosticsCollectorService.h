#pragma once

#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"

namespace dev::kerno::internal::diagnostics {

// The server's side: unpacks a transaction, calls the method, packs its answer. Called on any thread of the
// binder pool. A request without the interface's token gets BAD_TYPE and reaches no method.
class BnDiagnosticsCollectorService : public ::android::BnInterface<IDiagnosticsCollectorService> {
 public:
  ::android::status_t onTransact(uint32_t code, const ::android::Parcel& data, ::android::Parcel* reply,
                                 uint32_t flags = 0) override;
};

}  // namespace dev::kerno::internal::diagnostics
