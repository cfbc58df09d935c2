// The structured logger of "kerno_diagnostics_collector_events": turns a record into an event of the
// telemetry SDK.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <ossdk/UnifiedTelemetry.h>

namespace dobrel::arvr::structuredlogger::kerno_diagnostics_collector_events {

// One event's values. An absent text is left out of the event.
struct KernoDiagnosticsCollectorEventsEvent {
  std::string eventType;
  std::string eventFlow;
  std::string clientEventName;
  std::optional<std::string> errorReason;
  std::optional<std::string> errorTrace;
  int64_t clientAppId = 0;
  int64_t processId = 0;
};

// Used by one thread at a time.
class KernoDiagnosticsCollectorEventsEventLogger {
 public:
  using Handler = OSSDK::UnifiedTelemetry::v5::ITelemetryHandler;
  using Event = OSSDK::UnifiedTelemetry::v5::ITelemetryEvent;

  // Takes ownership of a handler that the SDK created. The SDK destroys it when the last reference goes.
  // Returns null for null.
  static std::shared_ptr<Handler> createSharedPtr(Handler* rawHandler);

  // A logger with a null handler creates and records nothing.
  explicit KernoDiagnosticsCollectorEventsEventLogger(std::shared_ptr<Handler> handler);

  // Returns the SDK's event with the values of `event`, ready to be recorded. Returns null if the handler is
  // null or refuses to create an event.
  std::shared_ptr<Event> createTelemetryEvent(const KernoDiagnosticsCollectorEventsEvent& event);

  // Returns whether the SDK recorded `event`, which may be null. If `flush`, the SDK returns only when the
  // event is on disk.
  bool record(const std::shared_ptr<Event>& event, bool flush);

 private:
  std::shared_ptr<Handler> mHandler;
};

}  // namespace dobrel::arvr::structuredlogger::kerno_diagnostics_collector_events
