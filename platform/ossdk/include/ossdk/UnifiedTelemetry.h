// The telemetry interface of the OS SDK, version 5. The module offers three entry points with C linkage,
// looked up by name. Each takes the interface version; for another version it returns null or does nothing.
#pragma once

#include <cstdint>
#include <memory>

#include "ossdk/Types.h"

namespace OSSDK::UnifiedTelemetry::v5 {

inline constexpr int kVersion = 5;
inline constexpr int kRecorded = 1;  // what ITelemetryHandler::record() returns on success

class ITelemetryEvent;
class ITelemetryHandler;

using CreateTelemetryHandler = ITelemetryHandler*(int version);
using DestroyTelemetryHandler = void(int version, ITelemetryHandler* handler);
using DestroyTelemetryEvent = void(int version, ITelemetryEvent* event);

inline constexpr char kCreateTelemetryHandler[] = "createTelemetryHandler";
inline constexpr char kDestroyTelemetryHandler[] = "destroyTelemetryHandler";
inline constexpr char kDestroyTelemetryEvent[] = "destroyTelemetryEvent";

// An event on its way to being recorded. One thread at a time.
class ITelemetryEvent {
 public:
  // Each adds a field after those that the event has. Keys are not compared: a key that is set twice is
  // recorded twice. Key and value are copied.
  virtual void setString(String key, String value) = 0;
  virtual void setInteger(String key, int64_t value) = 0;
  // Called after the last field. Only a closed event can be recorded.
  virtual void close() = 0;

  // Takes over what a handler created; `destroy` releases it and may be null only with an empty `raw`.
  static std::shared_ptr<ITelemetryEvent> rawToPtr(ITelemetryEvent* raw, DestroyTelemetryEvent* destroy) {
    if (raw == nullptr) return nullptr;
    return {raw, [destroy](ITelemetryEvent* event) { destroy(kVersion, event); }};
  }

 protected:
  ~ITelemetryEvent() = default;
};

// Creates and records events. One thread at a time; each thread may have a handler of its own.
class ITelemetryHandler {
 public:
  // Returns null if the SDK takes no event of that name, as of an empty one. The caller releases the event
  // with the module's destroyTelemetryEvent().
  virtual ITelemetryEvent* createTelemetryEvent(String name) = 0;
  // Returns kRecorded, or another value if the event could not be recorded. With `flush`, returns when the
  // event is on disk.
  virtual int record(ITelemetryEvent* event, bool flush) = 0;

 protected:
  ~ITelemetryHandler() = default;
};

}  // namespace OSSDK::UnifiedTelemetry::v5
