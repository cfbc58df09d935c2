// Sends a fuzzer's input to a binder object, as the binder library calls it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "dev/kerno/internal/diagnostics/BinderHeaders.h"
#include "telemetry/DiagnosticsCollectorTelemetry.h"

namespace fuzz {

// The first byte decides whether the request begins with the interface's token and whether the call is
// one-way. The second chooses the code. The rest is the request's body. Aborts if the reply is one that a
// client cannot read.
void transact(android::BBinder& service, const uint8_t* data, size_t size);

namespace Telemetry = Torv::OS::Diagnostics::Telemetry;

// A `Base` that drops its telemetry events and reports success.
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
