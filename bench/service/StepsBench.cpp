// The steps of transactions 1 and 2, each timed in this process. The rest of a round trip is the carrier and
// the client's reading. And an event's notification, which is fetching alone.

#include <functional>
#include <optional>
#include <vector>

#include "Benches.h"
#include "Calls.h"
#include "service/BundlePacking.h"
#include "service/DiagnosticsCollectorServiceHandler.h"
#include "state/ApplicationStateManager.h"
#include "support/Compare.h"
#include "support/Limits.h"
#include "telemetry/DiagnosticsCollectorTelemetry.h"

namespace servicebench {
namespace {

using android::Parcel;
using namespace Torv::OS::Diagnostics;  // NOLINT(google-build-using-namespace): as in the service's sources

constexpr int kPid = kFirstPid + kProcesses / 2;

struct Step {
  const char* name;
  std::function<void()> run;
};

double medianUs(const std::function<void()>& step) {
  std::vector<double> times;
  for (int i = 0; i < bench::rounds(500); ++i) {
    const double start = nowNs();
    step();
    times.push_back(nowNs() - start);
  }
  return percentile(times, 0.5) / 1000;
}

// Times each step alone.
void timeSteps(benchmark::State& state, const std::vector<Step>& steps) {
  for (auto _ : state) {
    double totalUs = 0;
    for (const Step& step : steps) {
      const double stepUs = medianUs(step.run);
      state.counters[step.name] = stepUs;
      totalUs += stepUs;
    }
    state.SetIterationTime(totalUs / 1e6);
  }
}

// A manager with the states of the benchmarks, and a statsd in this process that it gets atoms from.
class Manager {
 public:
  Manager() : mRuntime("TORV_RUNTIME_DIR", mDir.path("runtime")) {
    mManager = ApplicationStateManager::makeDefaultManager();
    publishStates();
    mManager->updateApplicationStateManager();
  }
  ApplicationStateManager* operator->() { return mManager.get(); }

 private:
  test::TempDir mDir;
  test::ScopedEnv mRuntime;
  std::unique_ptr<ApplicationStateManager> mManager;
};

template <typename Pack>
void writeReply(Pack pack) {
  android::os::PersistableBundle bundle;
  pack(&bundle);
  Parcel reply;
  reply.writeInt32(0);
  reply.writeParcelable(bundle);
}

void oneProcess(benchmark::State& state) {
  useOneCore();
  Manager manager;
  Telemetry::DiagnosticsCollectorTelemetry telemetry(true);
  const StringMap states = manager->getApplicationStateForPid(kPid).value_or(StringMap());
  timeSteps(state,
            {{"fetch_us", [&] { manager->updateApplicationStateManager(); }},
             {"fetch_and_copy_us", [&] { manager->getApplicationStateForPid(kPid); }},
             {"pack_us",
              [&] { writeReply([&](auto* bundle) { packProcessEntriesToBundle(kPid, states, bundle); }); }},
             {"telemetry_us", [&] {
                using namespace Telemetry;
                telemetry.reportDefaultEventWithPid(EventName::GetForProcessStart, EventType::Start,
                                                    EventFlow::Collector, kPid);
                telemetry.reportDefaultEventWithPid(EventName::GetForProcessSuccess, EventType::Success,
                                                    EventFlow::Collector, kPid);
              }}});
}

void allProcesses(benchmark::State& state) {
  useOneCore();
  Manager manager;
  const ProcessStates states = manager->getAllProcessStates();
  timeSteps(state, {{"fetch_and_copy_us", [&] { manager->getAllProcessStates(); }},
                    {"pack_us", [&] {
                       writeReply([&](auto* bundle) { packAllProcessStatesToBundle(states, bundle); });
                     }}});
}

class NoReports : public LibstatsdWrapper {
 public:
  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    return std::vector<ApplicationState>();
  }
};

// A handler without system context, whose black box holds `processes` processes.
class Handler {
 public:
  explicit Handler(int processes) {
    auto box = std::make_unique<BlackBox>();
    for (int i = 0; i < processes * kKeys; ++i)
      box->addProcessState(kFirstPid + i / kKeys, keyName(i % kKeys), i + 1, kValue);
    auto states = std::make_unique<ApplicationStateManager>(
        std::move(box), std::make_unique<StatsManager>(std::make_unique<NoReports>()), 60);
    mHandler = std::make_unique<DiagnosticsCollectorServiceHandler>(std::move(states), nullptr);
  }
  DiagnosticsCollectorServiceHandler* operator->() { return mHandler.get(); }

 private:
  std::unique_ptr<DiagnosticsCollectorServiceHandler> mHandler;
};

// A notification must not cost more because the black box is full.
void notification(benchmark::State& state) {
  useOneCore();
  Handler full(2000);
  Handler empty(0);
  constexpr int kEvents = 500;
  const auto notify = [](Handler& handler) {
    return [&handler] {
      for (int i = 0; i < kEvents; ++i) handler->onEvent(0, std::nullopt);
    };
  };
  bench::compare(state, 1.5, notify(full), notify(empty));
}

}  // namespace

void registerStepsBench() {
  benchmark::RegisterBenchmark("one_process_steps", oneProcess)->Iterations(1)->UseManualTime();
  benchmark::RegisterBenchmark("all_processes_steps", allProcesses)->Iterations(1)->UseManualTime();
  bench::registerComparison("notification_over_2000_processes", 101, notification);
}

}  // namespace servicebench
