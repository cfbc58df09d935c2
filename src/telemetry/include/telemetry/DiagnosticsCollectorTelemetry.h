// The service's own telemetry: one event of the platform's telemetry SDK for each step of a request.
#pragma once

#include <optional>
#include <string>

namespace Torv::OS::Diagnostics::Telemetry {

// Each value stands for one fixed text in the event. A value that is none of these is sent as
// "invalid_event_name", "invalid_type" or "invalid_flow".
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

// The base class of those who report. Reports may be made by several threads at once. Each is complete in
// itself and never changes the outcome of the request that it tells of, with one exception: while telemetry
// is enabled the SDK is required, and a report for which the SDK creates no event ends the process with a
// fatal log line.
class DiagnosticsCollectorTelemetry {
 public:
  // An object that is not enabled logs each report and sends nothing.
  explicit DiagnosticsCollectorTelemetry(bool enabled);
  virtual ~DiagnosticsCollectorTelemetry();

  // Each function returns whether the event was recorded, and logs an error if the SDK failed to. The
  // first three call the last.
  virtual bool reportDefaultEvent(EventName name, EventType type, EventFlow flow);
  virtual bool reportDefaultEventWithPid(EventName name, EventType type, EventFlow flow, int pid);
  virtual bool reportDefaultErrorEvent(EventName name, EventType type, EventFlow flow,
                                       const std::string& message);
  // An absent number is sent as 0, an absent text is not sent.
  virtual bool reportEvent(EventName name, EventType type, EventFlow flow, std::optional<int> pid,
                           std::optional<int> clientAppId, std::optional<std::string> errorReason,
                           std::optional<std::string> errorTrace);

 private:
  const bool mEnabled;
};

}  // namespace Torv::OS::Diagnostics::Telemetry
