// Sends what a fuzzer makes up to a binder object, as the binder would hand it over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "dev/kerno/internal/diagnostics/BinderHeaders.h"
#include "telemetry/DiagnosticsCollectorTelemetry.h"

namespace fuzz {

// The first byte says whether the request begins with the interface's token and is one-way, the second what
// code it has; the rest is its body. An answer that its client could not read aborts.
void transact(android::BBinder& service, const uint8_t* data, size_t size);

namespace Telemetry = Torv::OS::Diagnostics::Telemetry;

// A `Base` whose reports to telemetry succeed and go nowhere.
template <typename Base>
class Silent : public Base {
 public:
  using Base::Base;
  bool reportEvent(Telemetry::EventName, Telemetry::EventType, Telemetry::EventFlow, std::optional<int>,
                   std::optional<int>, std::optional<std::string>, std::optional<std::string>) override {
    return true;
  }
};

}  // namespace fuzz
