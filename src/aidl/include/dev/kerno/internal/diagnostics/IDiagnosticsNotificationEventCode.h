#pragma once

#include <cstdint>

namespace dev::kerno::internal::diagnostics {

// The system events that the notification service may be told of; carried as an int32. The service does the
// same for both: it takes in what applications have published so far.
enum class IDiagnosticsNotificationEventCode : int32_t {
  APPLICATION_CRASHED = 0,
  APPLICATION_NOT_RESPONDING = 1,
};

}  // namespace dev::kerno::internal::diagnostics
