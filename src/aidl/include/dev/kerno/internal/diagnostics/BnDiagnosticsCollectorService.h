#pragma once

#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"

namespace dev::kerno::internal::diagnostics {

// The server's side: it unpacks a transaction, calls the method, and packs the answer. onTransact() is called
// on any thread of the binder pool. It returns BAD_TYPE and calls no method if the request lacks the
// interface's token.
class BnDiagnosticsCollectorService : public ::android::BnInterface<IDiagnosticsCollectorService> {
 public:
  ::android::status_t onTransact(uint32_t code, const ::android::Parcel& data, ::android::Parcel* reply,
                                 uint32_t flags = 0) override;
};

}  // namespace dev::kerno::internal::diagnostics
