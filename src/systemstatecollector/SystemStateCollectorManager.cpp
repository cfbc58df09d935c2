#include "systemstatecollector/SystemStateCollectorManager.h"

#include <chrono>
#include <utility>

#include <android/log.h>

#include "BatteryCollector.h"
#include "CpuUsageCollector.h"
#include "GpuCollector.h"
#include "PsiCollector.h"
#include "SystemMemInfoCollector.h"

namespace Torv::OS::Diagnostics {
namespace {

using Config = SystemStateCollectorConfig;
using CollectorsLock = Base::BasicLockGuard<CollectorsMutex>;

// All standard collectors are made alike, but one of them shares files with others.
template <typename Collector>
std::unique_ptr<SystemStateCollector> make(const Config& config, ChargeFiles& /*chargeFiles*/) {
  return Collector::init(config);
}

template <>
std::unique_ptr<SystemStateCollector> make<BatteryCollector>(const Config& config, ChargeFiles& chargeFiles) {
  return BatteryCollector::init(config, chargeFiles);
}

struct StandardCollector {
  const char* name;
  uint32_t maxSamples;
  uint32_t sampleRate;
  std::unique_ptr<SystemStateCollector> (*make)(const Config& config, ChargeFiles& chargeFiles);
};

// The histories cover 60 seconds at a rate of 1, and 120 at a rate of 2.
constexpr StandardCollector kStandardCollectors[] = {
    {"PsiMemCollector", 60, 1, make<PsiMemCollector>},
    {"PsiCpuCollector", 60, 1, make<PsiCpuCollector>},
    {"PsiIoCollector", 60, 1, make<PsiIoCollector>},
    {"SystemMemInfoCollector", 60, 1, make<SystemMemInfoCollector>},
    {"BatteryCollector", 60, 2, make<BatteryCollector>},
    {"CpuUsageCollector", 60, 2, make<CpuUsageCollector>},
    {"GpuCollector", 60, 2, make<GpuCollector>},
};

int64_t nsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::nanoseconds(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

std::unique_ptr<SystemStateCollectorManager> SystemStateCollectorManager::makeDefaultManager() {
  return makeDefaultManager(PollStatistics::ofProcess(), ChargeFiles::ofProcess());
}

std::unique_ptr<SystemStateCollectorManager> SystemStateCollectorManager::makeDefaultManager(
    PollStatistics& statistics, ChargeFiles& chargeFiles) {
  auto manager = std::make_unique<SystemStateCollectorManager>(statistics);
  for (const StandardCollector& row : kStandardCollectors) {
    __android_log_print(ANDROID_LOG_INFO, nullptr, "systemstatecollector: adding %s\n", row.name);
    auto collector = row.make(Config(row.maxSamples, row.sampleRate), chargeFiles);
    if (collector != nullptr) {
      manager->addCollector(std::move(collector));
    } else {
      __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to create %s\n", row.name);
    }
  }
  if (manager->collectorCount() == 0) return nullptr;
  return manager;
}

SystemStateCollectorManager::SystemStateCollectorManager()
    : SystemStateCollectorManager(PollStatistics::ofProcess()) {}

SystemStateCollectorManager::SystemStateCollectorManager(PollStatistics& statistics,
                                                         const CollectorsMutex::Patience& patience)
    : mPollingTask(std::chrono::milliseconds(mPollIntervalMs), "SystemStateCollectorManagerPollingThread",
                   [this] { pollCollectors(); }),
      mCollectorsMutex(patience),
      mStatistics(statistics) {}

SystemStateCollectorManager::~SystemStateCollectorManager() {
  SystemStateCollectorManager::stopCollectorThread();
}

void SystemStateCollectorManager::startCollectorThread() {
  __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Starting system state collector thread");
  mPollingTask.start(/*runImmediately=*/false);
}

void SystemStateCollectorManager::stopCollectorThread() {
  __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Stopping system state collector thread");
  mPollingTask.stop(/*join=*/true);
}

std::unique_ptr<Base::StringMap> SystemStateCollectorManager::dumpSystemStateHistory() {
  auto histories = std::make_unique<Base::StringMap>();
  const auto start = std::chrono::steady_clock::now();
  if (!mCollectorsMutex.lockUnlessStuck()) {
    noteDumpWithoutHistories();
    return histories;
  }
  for (const auto& [id, collector] : mCollectors) {
    const auto history = collector->dumpSystemStateHistory();
    if (history != nullptr) histories->merge(*history);
  }
  __android_log_print(ANDROID_LOG_DEBUG, nullptr, "System State data dump time, total: %llu ms",
                      static_cast<unsigned long long>(nsSince(start) / 1'000'000));
  mCollectorsMutex.unlock();
  return histories;
}

size_t SystemStateCollectorManager::collectorCount() const {
  const CollectorsLock lock(mCollectorsMutex);
  return mCollectors.size();
}

void SystemStateCollectorManager::pollCollectors() {
  const auto start = std::chrono::steady_clock::now();
  sampleCollectors();
  if (const auto warning = accountPoll(mStatistics, nsSince(start))) {
    __android_log_print(
        ANDROID_LOG_WARN, nullptr,
        "Time limit exceeded while polling collectors, max time %llu, avg exceeded time: %llu ms",
        static_cast<unsigned long long>(warning->maxMs), static_cast<unsigned long long>(warning->averageMs));
  }
  ++mStatistics.pollCount;
  if (const uint64_t dumps = mDumpsWithout.exchange(0); dumps > 0) {
    __android_log_print(ANDROID_LOG_WARN, nullptr, "%llu system contexts went out without histories",
                        static_cast<unsigned long long>(dumps));
  }
}

void SystemStateCollectorManager::addCollector(std::unique_ptr<SystemStateCollector> collector) {
  const uint8_t id = collector->getId();
  __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Adding new collector ID %d", id);
  const CollectorsLock lock(mCollectorsMutex);
  mCollectors.emplace(id, std::move(collector));
}

void SystemStateCollectorManager::sampleCollectors() {
  const CollectorsLock lock(mCollectorsMutex);
  for (const auto& [id, collector] : mCollectors) {
    const uint32_t rate = collector->getSampleRate();
    if (rate == 0 || mStatistics.pollCount % rate != 0) continue;
    mSampledId = id;
    if (!collector->collectSystemStateData()) {
      __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to read metrics for collector %i", id);
    }
  }
}

void SystemStateCollectorManager::noteDumpWithoutHistories() {
  if (mDumpsWithout++ > 0) return;
  __android_log_print(ANDROID_LOG_WARN, nullptr,
                      "Collector %i hangs in its source; system contexts go out without histories",
                      mSampledId.load());
}

}  // namespace Torv::OS::Diagnostics
