#pragma once

#include <memory>
#include <vector>

#include <utils/Vector.h>

#include "dev/kerno/internal/diagnostics/BnDiagnosticsNotificationService.h"
#include "service/Producer.h"
#include "telemetry/DiagnosticsCollectorTelemetry.h"

namespace Torv::OS::Diagnostics {

// The binder object behind "DiagnosticsNotificationService". It checks an event's code and tells every
// observer, in order, on the binder thread that received the event. Details that the sender gives are not
// passed on.
//
// Thread-safe.
class DiagnosticsNotificationService
    : public Producer,
      public Telemetry::DiagnosticsCollectorTelemetry,
      public dev::kerno::internal::diagnostics::BnDiagnosticsNotificationService {
 public:
  // No observer may be null: the first event then ends the process with a fatal log line.
  explicit DiagnosticsNotificationService(std::vector<std::shared_ptr<Observer>> observers);

  // Returns EX_ILLEGAL_STATE and logs an error if the code is no event; no observer is told then.
  android::binder::Status notifySystemEvent(
      dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode code,
      const android::os::PersistableBundle& data) override;

  // Writes nothing to `fd` and returns OK.
  android::status_t dump(int fd, const android::Vector<android::String16>& args) override;

  // Returns true if the caller of the current transaction is the system or root. Nothing calls this:
  // events are taken from any caller.
  virtual bool allowedCallerUID();
};

}  // namespace Torv::OS::Diagnostics
