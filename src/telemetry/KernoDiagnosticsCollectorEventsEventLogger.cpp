#include "KernoDiagnosticsCollectorEventsEventLogger.h"

#include <utility>

#include "sdkloader/OsSdkLoader.h"

namespace dobrel::arvr::structuredlogger::kerno_diagnostics_collector_events {

namespace v5 = OSSDK::UnifiedTelemetry::v5;

namespace {

constexpr char kEventName[] = "kerno_diagnostics_collector_events";
constexpr char kEventType[] = "event_type";
constexpr char kEventFlow[] = "event_flow";
constexpr char kClientEventName[] = "client_event_name";
constexpr char kErrorReason[] = "error_reason";
constexpr char kErrorTrace[] = "error_trace";
constexpr char kClientAppId[] = "client_app_id";
constexpr char kProcessId[] = "process_id";

Torv::OS::OsSdkFunction<v5::DestroyTelemetryHandler> gDestroyTelemetryHandler(v5::kDestroyTelemetryHandler);
Torv::OS::OsSdkFunction<v5::DestroyTelemetryEvent> gDestroyTelemetryEvent(v5::kDestroyTelemetryEvent);

void destroyHandler(v5::ITelemetryHandler* handler) {
  if (auto* destroy = gDestroyTelemetryHandler.get()) destroy(v5::kVersion, handler);
}

void destroyEvent(int version, v5::ITelemetryEvent* event) {
  if (auto* destroy = gDestroyTelemetryEvent.get()) destroy(version, event);
}

}  // namespace

std::shared_ptr<v5::ITelemetryHandler> KernoDiagnosticsCollectorEventsEventLogger::createSharedPtr(
    Handler* rawHandler) {
  if (rawHandler == nullptr) return nullptr;
  return {rawHandler, &destroyHandler};
}

KernoDiagnosticsCollectorEventsEventLogger::KernoDiagnosticsCollectorEventsEventLogger(
    std::shared_ptr<Handler> handler)
    : mHandler(std::move(handler)) {}

std::shared_ptr<v5::ITelemetryEvent> KernoDiagnosticsCollectorEventsEventLogger::createTelemetryEvent(
    const KernoDiagnosticsCollectorEventsEvent& event) {
  if (mHandler == nullptr) return nullptr;
  auto created = Event::rawToPtr(mHandler->createTelemetryEvent(kEventName), &destroyEvent);
  if (created == nullptr) return nullptr;
  if (event.errorReason) created->setString(kErrorReason, *event.errorReason);
  if (event.errorTrace) created->setString(kErrorTrace, *event.errorTrace);
  created->setString(kEventType, event.eventType);
  created->setInteger(kClientAppId, event.clientAppId);
  created->setInteger(kProcessId, event.processId);
  created->setString(kEventFlow, event.eventFlow);
  created->setString(kClientEventName, event.clientEventName);
  created->close();
  return created;
}

bool KernoDiagnosticsCollectorEventsEventLogger::record(const std::shared_ptr<Event>& event, bool flush) {
  return mHandler != nullptr && event != nullptr && mHandler->record(event.get(), flush) == v5::kRecorded;
}

}  // namespace dobrel::arvr::structuredlogger::kerno_diagnostics_collector_events
