#include "GeneratedRecording.h"

#include <deque>
#include <map>
#include <random>
#include <set>
#include <stdexcept>

#include <fmt/format.h>

#include "Answers.h"
#include "timeline/Recorder.h"

namespace recordings {
namespace {

using timeline::Answer;
using timeline::Texts;

constexpr int64_t kSeconds = 600;
constexpr int64_t kAwayFrom = 200;
constexpr int64_t kAwayTo = 220;
constexpr int kProcesses = 300;
constexpr int kKeys = 20;
constexpr size_t kRing = 60;

class Machine {
 public:
  Machine() {
    for (int pid = 1000; pid < 1000 + kProcesses; ++pid) {
      for (int key = 0; key < kKeys; ++key) publish(pid, key, 0);
    }
  }

  void live(int64_t second) {
    for (int i = 0; i < 30; ++i) {
      const int pid = 1000 + number(kProcesses);
      if (!mDiedAt.contains(pid)) publish(pid, number(kKeys), second);
    }
    if (second % 50 == 0) mDiedAt[1000 + static_cast<int>(second / 50)] = second;
    for (const auto& [pid, diedAt] : mDiedAt) {
      if (second - diedAt > 70) mStates.erase(pid);
    }
    mStall += static_cast<uint64_t>(number(900'000));
    if (second == 400) mStall = 5;  // the counter restarts
    if (second > kAwayFrom && second < kAwayTo) return;
    const int64_t now = answers::clocksAt(second * 1000).monotonicMs;
    sample(
        "psi_cpu_history", now,
        second % 37 == 0 ? "" : fmt::format(R"("some_avg10": {}.25, "some_total": {})", number(100), mStall));
    if (second % 2 == 0)
      sample("cpu_utilization_history", now, fmt::format(R"("CpuUtilization_%": {})", number(100)));
    sample("system_meminfo_history", now,
           fmt::format(R"("MemTotal_KB": 8000000, "MemFree_KB": {})", number(8'000'000)));
  }

  // The service has ended: its states and samples are gone, and applications publish anew.
  void forget(int64_t second) {
    mSamples.clear();
    mStates.clear();
    for (int pid = 1000; pid < 1000 + kProcesses; pid += 2) {
      if (!mDiedAt.contains(pid)) publish(pid, 0, second);
    }
  }

  Answer answer(int64_t second, bool withContext) const {
    Answer answer;
    answer.clocks = answers::clocksAt(second * 1000);
    answer.processes = mStates;
    if (!withContext) return answer;
    answer.context["build_tags"] = "dev-keys";
    for (const auto& [source, samples] : mSamples) {
      answer.context[source] = answers::history(answer.clocks.monotonicMs, {samples.begin(), samples.end()});
    }
    return answer;
  }

  std::set<int32_t> dead() const {
    std::set<int32_t> dead;
    for (const auto& [pid, diedAt] : mDiedAt) {
      if (mStates.contains(pid)) dead.insert(pid);
    }
    return dead;
  }

 private:
  int number(int below) { return static_cast<int>(mRandom() % static_cast<uint32_t>(below)); }

  void publish(int pid, int key, int64_t second) {
    mStates[pid][fmt::format("key {}", key)] = fmt::format("value {} <of> {}", second, number(5));
  }

  void sample(const std::string& source, int64_t monotonicMs, const std::string& members) {
    auto& samples = mSamples[source];
    samples.emplace_back(monotonicMs, members);
    if (samples.size() > kRing) samples.pop_front();
  }

  std::mt19937 mRandom{7};  // NOLINT(cert-msc51-cpp): the same recording at every call
  std::map<int32_t, Texts> mStates;
  std::map<int32_t, int64_t> mDiedAt;
  std::map<std::string, std::deque<std::pair<int64_t, std::string>>> mSamples;
  uint64_t mStall = 1'000'000;
};

void require(const android::base::Result<void>& written) {
  if (!written.ok()) throw std::runtime_error(written.error().message());
}

}  // namespace

void writeGeneratedRecording(const std::string& path) {
  auto recorder = timeline::Recorder::create({path, 1000, uint64_t{1} << 30, "a machine of the test"},
                                             answers::clocksAt(1000));
  if (!recorder.ok()) throw std::runtime_error(recorder.error().message());
  Machine machine;
  for (int64_t second = 1; second <= kSeconds; ++second) {
    machine.live(second);
    if (second > kAwayFrom && second < kAwayTo) {
      require(recorder->addGap(kAwayFrom * 1000, "the service is not running"));
      continue;
    }
    if (second == kAwayTo) machine.forget(second);
    const bool withContext = recorder->wantsContext(second * 1000) || second == kSeconds;
    require(recorder->add(machine.answer(second, withContext), machine.dead()));
    if (second == 1) require(recorder->addNames(second * 1000, {{1000, "application"}}));
  }
}

}  // namespace recordings
