#pragma once

#include <cstdint>

namespace dev::kerno::internal::diagnostics {

// The system events, an int32 on the wire. The service does the same for both: it moves what applications
// have published so far into the black box.
enum class IDiagnosticsNotificationEventCode : int32_t {
  APPLICATION_CRASHED = 0,
  APPLICATION_NOT_RESPONDING = 1,
};

}  // namespace dev::kerno::internal::diagnostics
