#include <cstdlib>
#include <memory>
#include <vector>

#include <android/log.h>

#include "Transact.h"
#include "service/DiagnosticsNotificationService.h"

namespace {

using namespace Torv::OS::Diagnostics;  // NOLINT(google-build-using-namespace): the service's own sources do

// Aborts if the service passes on a code that is no event.
class StrictObserver : public Observer {
 public:
  void onEvent(int eventId, std::optional<std::unordered_map<std::string, std::string>> data) override {
    if ((eventId != 0 && eventId != 1) || data) abort();
  }
};

android::sp<DiagnosticsNotificationService> makeService() {
  __android_log_set_minimum_priority(ANDROID_LOG_FATAL);  // every event is logged
  return new fuzz::Silent<DiagnosticsNotificationService>(
      std::vector<std::shared_ptr<Observer>>{std::make_shared<StrictObserver>()});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const android::sp<DiagnosticsNotificationService> service = makeService();
  fuzz::transact(*service, data, size);
  return 0;
}
