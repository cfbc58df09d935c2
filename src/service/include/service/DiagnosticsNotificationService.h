#pragma once

#include <memory>
#include <vector>

#include <utils/Vector.h>

#include "dev/kerno/internal/diagnostics/BnDiagnosticsNotificationService.h"
#include "service/Producer.h"
#include "telemetry/DiagnosticsCollectorTelemetry.h"

namespace Torv::OS::Diagnostics {

// The binder object behind "DiagnosticsNotificationService": checks an event's code and tells every observer,
// in order, on the binder thread that received it. What the sender says about the event is not passed on.
class DiagnosticsNotificationService
    : public Producer,
      public Telemetry::DiagnosticsCollectorTelemetry,
      public dev::kerno::internal::diagnostics::BnDiagnosticsNotificationService {
 public:
  // An empty pointer among the observers ends the process, with a fatal log line, at the first event.
  explicit DiagnosticsNotificationService(std::vector<std::shared_ptr<Observer>> observers);

  // EX_ILLEGAL_STATE for a code that is no event; no observer hears of it.
  android::binder::Status notifySystemEvent(
      dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode code,
      const android::os::PersistableBundle& data) override;

  // Has nothing to say: writes nothing to `fd`.
  android::status_t dump(int fd, const android::Vector<android::String16>& args) override;

  // Whether the caller of the current transaction is the system or root. For rules that only they may pass;
  // events are taken from any caller.
  virtual bool allowedCallerUID();
};

}  // namespace Torv::OS::Diagnostics
