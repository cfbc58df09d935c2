// A module whose store is not to be had and whose telemetry takes no event.
#include <ossdk/Preferences.h>
#include <ossdk/UnifiedTelemetry.h>

namespace v5 = OSSDK::UnifiedTelemetry::v5;
namespace v4 = OSSDK::Preferences::v4;

namespace {

class Handler : public v5::ITelemetryHandler {
 public:
  v5::ITelemetryEvent* createTelemetryEvent(OSSDK::String /*name*/) override { return nullptr; }
  int record(v5::ITelemetryEvent* /*event*/, bool /*flush*/) override { return v5::kRecorded; }
};

}  // namespace

extern "C" v5::ITelemetryHandler* createTelemetryHandler(int /*version*/) {
  static Handler handler;
  return &handler;
}

extern "C" void destroyTelemetryHandler(int /*version*/, v5::ITelemetryHandler* /*handler*/) {}

extern "C" v4::IPreferencesManager* createPreferencesManager(int /*version*/) {
  return nullptr;
}
