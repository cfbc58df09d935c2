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

// How far the request has come. A request sends Start, and then one of the others at most.
enum class EventType : int { Error = 0, Start = 1, Success = 2 };

// The service that the request came to.
enum class EventFlow : int { Collector = 0, Notification = 1 };

// The base class of the classes that report. Thread-safe. A report never changes the outcome of its request,
// with one exception: while telemetry is enabled the SDK is required, and a report for which the SDK creates
// no event ends the process with a fatal log line.
class DiagnosticsCollectorTelemetry {
 public:
  // An object that is not enabled logs each report and sends nothing.
  explicit DiagnosticsCollectorTelemetry(bool enabled);
  virtual ~DiagnosticsCollectorTelemetry();

  // Each function sends one event and returns whether it was recorded. Returns false and logs an error if the
  // SDK fails to record it. `pid` is the process that the request asks about, `clientAppId` the application
  // that asks, and `message` the reason of an error, for people. The first three call the last, so a derived
  // class that overrides reportEvent() sees every event. Does not wait for the event to reach the disk.
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
