#include <memory>
#include <utility>
#include <variant>
#include <vector>

#include "Transact.h"
#include "service/DiagnosticsCollectorService.h"

namespace {

using namespace Torv::OS::Diagnostics;  // NOLINT(google-build-using-namespace): the service's own sources do

// Returns a state of process 1 and a state of a namespace at the first fetch, and nothing later.
class OneBatch : public LibstatsdWrapper {
 public:
  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    return std::exchange(mStates, {});
  }

 private:
  std::vector<ApplicationState> mStates{{false, "", 1, "screen", "home", 1},
                                        {true, "telemetry", 0, "service_session_id", "s", 2}};
};

class FixedContext : public SystemContextManager {
 public:
  FixedContext() : SystemContextManager(nullptr, nullptr) {}
  std::unordered_map<std::string, std::string> getSystemContext() override { return {{"build_tags", "dev"}}; }
};

android::sp<DiagnosticsCollectorService> makeService() {
  auto states = std::make_unique<ApplicationStateManager>(
      std::make_unique<BlackBox>(), std::make_unique<StatsManager>(std::make_unique<OneBatch>()), 60);
  return new DiagnosticsCollectorService(std::make_shared<fuzz::Silent<DiagnosticsCollectorServiceHandler>>(
      std::move(states), std::make_unique<FixedContext>()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const android::sp<DiagnosticsCollectorService> service = makeService();
  fuzz::transact(*service, data, size);
  return 0;
}
