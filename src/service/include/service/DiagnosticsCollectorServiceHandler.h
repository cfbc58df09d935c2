#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "base/Mutex.h"
#include "dev/kerno/internal/diagnostics/BinderHeaders.h"
#include "service/Observer.h"
#include "state/ApplicationStateManager.h"
#include "systemcontext/SystemContextManager.h"
#include "telemetry/DiagnosticsCollectorTelemetry.h"

namespace Torv::OS::Diagnostics {

// The logic behind both binder services. It answers the collector service's three requests with bundles (see
// BundlePacking.h for their layouts). As an observer of the notification service it moves published atoms
// into the black box. It reports start, success and failure of each request about application states to
// telemetry.
//
// No answer is larger than a reply may be (see storage/Limits.h). What does not fit is left out and logged.
//
// Thread-safe: requests and events come on any binder thread. The managers lock their data and return copies.
class DiagnosticsCollectorServiceHandler : public Observer, public Telemetry::DiagnosticsCollectorTelemetry {
 public:
  // Builds both managers and the handler. Returns an empty pointer and logs an error if a manager cannot be
  // built.
  static std::shared_ptr<DiagnosticsCollectorServiceHandler> makeDefaultServiceHandler();

  // Takes over both managers. If the state manager is null, the two requests about application states return
  // EX_NULL_POINTER, and no other function may be called. The system context manager must not be null.
  DiagnosticsCollectorServiceHandler(std::unique_ptr<ApplicationStateManager> applicationStateManager,
                                     std::unique_ptr<SystemContextManager> systemContextManager);

  // Fills `out` with the newest states of one process. Returns EX_NULL_POINTER if `out` or the state manager
  // is null, and OK with `out` unchanged if the process is unknown. States that do not fit are left out:
  // those whose newest value is oldest.
  android::binder::Status getApplicationStateDataForProcess(int pid, android::os::PersistableBundle* out);

  // Fills `out` with the newest states of all processes. Returns EX_NULL_POINTER as above. If they do not
  // fit, the largest processes come without states.
  android::binder::Status getAllAvailableApplicationStateData(android::os::PersistableBundle* out);

  // Fills `out` with the system context and the global states. Returns EX_NULL_POINTER if `out` is null.
  // Reports no telemetry. If the context does not fit, its largest values are left out.
  android::binder::Status getSystemContextData(android::os::PersistableBundle* out);

  // Start and stop the clean-up of the application states, every 30 seconds.
  void startCleanupPeriodicTask();
  void stopCleanupPeriodicTask();
  // Start and stop polling the system's state, every second. They do nothing if correlation is off.
  void startSystemStateCollectorThread();
  void stopSystemStateCollectorThread();

  // Moves what was published so far into the black box, whatever the event is.
  void onEvent(int eventId, std::optional<std::unordered_map<std::string, std::string>> data) override;

 private:
  const std::unique_ptr<ApplicationStateManager> mApplicationStateManager;
  const std::unique_ptr<SystemContextManager> mSystemContextManager;
  // Held while a whole table is copied and packed, which takes ten times its reply in memory for a moment.
  // With one at a time, sixteen callers need little more than one.
  Base::Mutex mWholeTable;
};

}  // namespace Torv::OS::Diagnostics
