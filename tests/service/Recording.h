// Records what a class reports to telemetry instead of sending it.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "telemetry/DiagnosticsCollectorTelemetry.h"

namespace test {

namespace telemetry = Torv::OS::Diagnostics::Telemetry;

struct Event {
  telemetry::EventName name;
  telemetry::EventType type;
  telemetry::EventFlow flow;
  std::optional<int> pid = std::nullopt;
  std::optional<std::string> errorReason = std::nullopt;

  bool operator==(const Event&) const = default;
};

inline void PrintTo(const Event& event, std::ostream* stream) {
  *stream << "event " << static_cast<int>(event.name) << ", type " << static_cast<int>(event.type)
          << ", flow " << static_cast<int>(event.flow) << ", pid " << event.pid.value_or(-1) << ", reason "
          << event.errorReason.value_or("none");
}

template <typename Base>
class Recording : public Base {
 public:
  using Base::Base;

  bool reportEvent(telemetry::EventName name, telemetry::EventType type, telemetry::EventFlow flow,
                   std::optional<int> pid, std::optional<int> clientAppId,
                   std::optional<std::string> errorReason, std::optional<std::string> errorTrace) override {
    unexpected |= clientAppId.has_value() || errorTrace.has_value();
    events.push_back({name, type, flow, pid, std::move(errorReason)});
    return false;
  }

  std::vector<Event> events;
  bool unexpected = false;  // an app id or a trace was given, which no report of the service has
};

}  // namespace test
