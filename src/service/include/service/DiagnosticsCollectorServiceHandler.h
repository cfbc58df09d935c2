#pragma once

#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include <binder/PersistableBundle.h>
#include <binder/Status.h>

#include "service/Observer.h"
#include "state/ApplicationStateManager.h"
#include "systemcontext/SystemContextManager.h"
#include "telemetry/DiagnosticsCollectorTelemetry.h"

namespace Torv::OS::Diagnostics {

// What both binder services do: answers the collector service's three requests with bundles (their layouts
// are in BundlePacking.h), and as an observer of the notification service takes in what applications have
// published. It reports how each request about application states went to the platform's telemetry.
//
// Requests and events come on any binder thread, several at once. The handler holds no lock: the managers
// hand out copies, which are packed without one.
class DiagnosticsCollectorServiceHandler : public Observer, public Telemetry::DiagnosticsCollectorTelemetry {
 public:
  // Builds both managers. Logs which of them could not be built, and returns nothing then.
  static std::shared_ptr<DiagnosticsCollectorServiceHandler> makeDefaultServiceHandler();

  // Takes over both managers. Without a state manager the two requests about application states answer
  // EX_NULL_POINTER and nothing else may be called; a system context manager must be given.
  DiagnosticsCollectorServiceHandler(std::unique_ptr<ApplicationStateManager> applicationStateManager,
                                     std::unique_ptr<SystemContextManager> systemContextManager);

  // OK with `out` untouched where nothing is known of the process. EX_NULL_POINTER without a state manager or
  // with a null `out`.
  android::binder::Status getApplicationStateDataForProcess(int pid, android::os::PersistableBundle* out);

  // EX_NULL_POINTER as above.
  android::binder::Status getAllAvailableApplicationStateData(android::os::PersistableBundle* out);

  // EX_NULL_POINTER with a null `out`. This request reports no telemetry.
  android::binder::Status getSystemContextData(android::os::PersistableBundle* out);

  // The 30-second clean-up of the application states.
  void startCleanupPeriodicTask();
  void stopCleanupPeriodicTask();
  // The one-second polling of the system's state, where that is switched on.
  void startSystemStateCollectorThread();
  void stopSystemStateCollectorThread();

  void onEvent(int eventId, std::optional<std::unordered_map<std::string, std::string>> data) override;

 private:
  const std::unique_ptr<ApplicationStateManager> mApplicationStateManager;
  const std::unique_ptr<SystemContextManager> mSystemContextManager;
};

}  // namespace Torv::OS::Diagnostics
