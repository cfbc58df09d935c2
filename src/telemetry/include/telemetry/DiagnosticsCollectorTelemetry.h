// The service's own telemetry: one event of the platform's telemetry SDK for each step of a request.
#pragma once

#include <optional>
#include <string>

namespace Torv::OS::Diagnostics::Telemetry {

// The values are part of the contract with the SDK's consumers: each stands for one fixed text in the event;
// a value that is none of these is sent as "invalid_event_name", "invalid_type" or "invalid_flow".
enum class EventName : int {
  ConnectStart = 0,
  ConnectSuccess = 1,
  ConnectError = 2,
  GetAllStart = 3,
  GetAllSuccess = 4,
  GetAllError = 5,
  GetForProcessStart = 6,
  GetForProcessSuccess = 7,
  GetForProcessError = 8,
  NotifyStart = 9,
  NotifySuccess = 10,
  NotifyError = 11,
};

enum class EventType : int { Error = 0, Start = 1, Success = 2 };

enum class EventFlow : int { Collector = 0, Notification = 1 };

// Base of whoever reports. Reports may be made from several threads at once; each is complete in itself and
// never changes the outcome of the request it tells about. One exception is deliberate: the SDK is required
// while telemetry is enabled, so a report for which the SDK creates no event ends the process.
class DiagnosticsCollectorTelemetry {
 public:
  explicit DiagnosticsCollectorTelemetry(bool enabled);
  virtual ~DiagnosticsCollectorTelemetry();

  // Each returns whether the event was recorded; a disabled object records nothing.
  virtual bool reportDefaultEvent(EventName name, EventType type, EventFlow flow);
  virtual bool reportDefaultEventWithPid(EventName name, EventType type, EventFlow flow, int pid);
  virtual bool reportDefaultErrorEvent(EventName name, EventType type, EventFlow flow,
                                       const std::string& message);
  // The three above come here. Absent numbers are sent as 0, absent texts not at all.
  virtual bool reportEvent(EventName name, EventType type, EventFlow flow, std::optional<int> pid,
                           std::optional<int> clientAppId, std::optional<std::string> errorReason,
                           std::optional<std::string> errorTrace);

 private:
  const bool mEnabled;
};

}  // namespace Torv::OS::Diagnostics::Telemetry
