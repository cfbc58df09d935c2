// The structured logger of "kerno_diagnostics_collector_events": turns a record into an event of the
// telemetry SDK.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <ossdk/UnifiedTelemetry.h>

namespace dobrel::arvr::structuredlogger::kerno_diagnostics_collector_events {

struct KernoDiagnosticsCollectorEventsEvent {
  // Constant texts.
  std::string_view eventType;
  std::string_view eventFlow;
  std::string_view clientEventName;
  std::optional<std::string> errorReason;
  std::optional<std::string> errorTrace;
  int64_t clientAppId = 0;
  int64_t processId = 0;
};

// Used by one thread.
class KernoDiagnosticsCollectorEventsEventLogger {
 public:
  using Handler = OSSDK::UnifiedTelemetry::v5::ITelemetryHandler;
  using Event = OSSDK::UnifiedTelemetry::v5::ITelemetryEvent;

  // Takes over a handler of the SDK, to be destroyed through the SDK with its last reference.
  static std::shared_ptr<Handler> createSharedPtr(Handler* rawHandler);

  // An empty handler makes a logger that creates and records nothing.
  explicit KernoDiagnosticsCollectorEventsEventLogger(std::shared_ptr<Handler> handler);

  // The record as a closed event; empty where the handler is, or refuses the event.
  std::shared_ptr<Event> createTelemetryEvent(const KernoDiagnosticsCollectorEventsEvent& event);

  // Whether the SDK recorded it. With `flush` the SDK returns only when it is on disk.
  bool record(const std::shared_ptr<Event>& event, bool flush);

 private:
  std::shared_ptr<Handler> mHandler;
};

}  // namespace dobrel::arvr::structuredlogger::kerno_diagnostics_collector_events
