#include "telemetry/DiagnosticsCollectorTelemetry.h"

#include <cstddef>
#include <utility>

#include <android/log.h>

#include "KernoDiagnosticsCollectorEventsEventLogger.h"
#include "sdkloader/OsSdkLoader.h"

namespace Torv::OS::Diagnostics::Telemetry {
namespace {

namespace v5 = OSSDK::UnifiedTelemetry::v5;
using dobrel::arvr::structuredlogger::kerno_diagnostics_collector_events::
    KernoDiagnosticsCollectorEventsEvent;
using dobrel::arvr::structuredlogger::kerno_diagnostics_collector_events::
    KernoDiagnosticsCollectorEventsEventLogger;

constexpr char kTag[] = "DiagnosticsCollectorService";

OsSdkFunction<v5::CreateTelemetryHandler> gCreateTelemetryHandler(v5::kCreateTelemetryHandler);

// Each in the order of its enumeration's values.
constexpr const char* kEventNames[] = {
    "diagnostics_collector_service_connect_start",
    "diagnostics_collector_service_connect_success",
    "diagnostics_collector_service_connect_error",
    "get_all_available_application_state_data_start",
    "get_all_available_application_state_data_success",
    "get_all_available_application_state_data_error",
    "get_application_state_data_for_process_start",
    "get_application_state_data_for_process_success",
    "get_application_state_data_for_process_error",
    "notify_system_event_start",
    "notify_system_event_success",
    "notify_system_event_error",
};
constexpr const char* kEventTypes[] = {"error", "start", "success"};
constexpr const char* kEventFlows[] = {"collector_service_flow", "notification_service_flow"};

// Returns the text of `value`, or `invalid` if the enumeration has no such value.
template <size_t N, typename Enum>
const char* textOf(const char* const (&texts)[N], Enum value, const char* invalid) {
  const auto index =
      static_cast<size_t>(static_cast<unsigned>(value));  // a negative value becomes a large one
  return index < N ? texts[index] : invalid;
}

// Returns null if the SDK is missing or creates no handler.
std::shared_ptr<v5::ITelemetryHandler> createHandler() {
  auto* create = gCreateTelemetryHandler.get();
  if (create == nullptr) return nullptr;
  return KernoDiagnosticsCollectorEventsEventLogger::createSharedPtr(create(v5::kVersion));
}

}  // namespace

DiagnosticsCollectorTelemetry::DiagnosticsCollectorTelemetry(bool enabled) : mEnabled(enabled) {}

DiagnosticsCollectorTelemetry::~DiagnosticsCollectorTelemetry() = default;

bool DiagnosticsCollectorTelemetry::reportDefaultEvent(EventName name, EventType type, EventFlow flow) {
  return reportEvent(name, type, flow, std::nullopt, std::nullopt, std::nullopt, std::nullopt);
}

bool DiagnosticsCollectorTelemetry::reportDefaultEventWithPid(EventName name, EventType type, EventFlow flow,
                                                              int pid) {
  return reportEvent(name, type, flow, pid, std::nullopt, std::nullopt, std::nullopt);
}

bool DiagnosticsCollectorTelemetry::reportDefaultErrorEvent(EventName name, EventType type, EventFlow flow,
                                                            const std::string& message) {
  return reportEvent(name, type, flow, std::nullopt, std::nullopt, message, std::nullopt);
}

bool DiagnosticsCollectorTelemetry::reportEvent(EventName name, EventType type, EventFlow flow,
                                                std::optional<int> pid, std::optional<int> clientAppId,
                                                std::optional<std::string> errorReason,
                                                std::optional<std::string> errorTrace) {
  if (!mEnabled) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "DiagnosticsCollectorTelemetry: telemetry disabled.");
    return false;
  }
  // Each report has a handler of its own, so that reports of several threads share nothing.
  KernoDiagnosticsCollectorEventsEventLogger logger(createHandler());
  const KernoDiagnosticsCollectorEventsEvent record{textOf(kEventTypes, type, "invalid_type"),
                                                    textOf(kEventFlows, flow, "invalid_flow"),
                                                    textOf(kEventNames, name, "invalid_event_name"),
                                                    std::move(errorReason),
                                                    std::move(errorTrace),
                                                    clientAppId.value_or(0),
                                                    pid.value_or(0)};
  const auto event = logger.createTelemetryEvent(record);
  // The service must not run without the telemetry SDK.
  if (event == nullptr) {
    __android_log_assert(nullptr, kTag, "The telemetry SDK is missing or created no event for %s",
                         record.clientEventName.c_str());
  }
  const bool recorded = logger.record(event, false);
  if (!recorded) {
    __android_log_print(ANDROID_LOG_ERROR, kTag,
                        "DiagnosticsCollectorTelemetry: Failed to log diagnostics collector report event!");
  }
  return recorded;
}

}  // namespace Torv::OS::Diagnostics::Telemetry
