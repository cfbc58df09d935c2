// Where the time of transactions 1 and 2 goes: their steps one by one, in this process. What is left of a
// round trip is the carrier and the client's reading.

#include <functional>
#include <optional>
#include <vector>

#include "Benches.h"
#include "Calls.h"
#include "service/BundlePacking.h"
#include "state/ApplicationStateManager.h"
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
  for (int i = 0; i < rounds(500); ++i) {
    const double start = nowNs();
    step();
    times.push_back(nowNs() - start);
  }
  return percentile(times, 0.5) / 1000;
}

// Times each step by itself.
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

// A manager with the states of the benchmarks, over a statsd of this process.
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

}  // namespace

void registerStepsBench() {
  benchmark::RegisterBenchmark("one_process_steps", oneProcess)->Iterations(1)->UseManualTime();
  benchmark::RegisterBenchmark("all_processes_steps", allProcesses)->Iterations(1)->UseManualTime();
}

}  // namespace servicebench
