#include "BatteryCollector.h"

#include <utility>

#include "HistoryReport.h"

namespace Torv::OS::Diagnostics {
namespace {

const Json::StaticString kCharge("BatteryCharge_%");

}  // namespace

std::unique_ptr<BatteryCollector> BatteryCollector::init(SystemStateCollectorConfig config,
                                                         ChargeFiles& files) {
  if (!files.open()) return nullptr;
  return std::make_unique<BatteryCollector>(config, files);
}

BatteryCollector::BatteryCollector(const SystemStateCollectorConfig& config, ChargeFiles& files)
    : SystemStateCollector(config),
      mFiles(files),
      mBuffer(std::make_unique<CircularBuffer<RawMetric>>(config.getMaxSamples())) {}

BatteryCollector::~BatteryCollector() {
  mFiles.release();
}

uint8_t BatteryCollector::getId() const {
  return 5;
}

std::string BatteryCollector::getDescription() const {
  return "Provides battery stats";
}

bool BatteryCollector::collectSystemStateData() {
  Base::LockGuard lock(mMutex);
  RawMetric& sample = mBuffer->reserve();
  sample.timeMs = Utils::monotonicMilliseconds();
  if (const auto ratio = mFiles.readRatio()) sample.chargeRatio = *ratio;
  return true;
}

std::unique_ptr<SystemStateCollector::History> BatteryCollector::dumpSystemStateHistory() {
  const uint64_t nowMs = Utils::monotonicMilliseconds();
  std::vector<RawMetric> samples(getMaxSamples());
  {
    Base::LockGuard lock(mMutex);
    samples.resize(mBuffer->size());
    mBuffer->readAll(samples.begin());
  }
  return makeHistory(
      "battery_state_history", nowMs, samples, Evaluate::NewestFirst,
      [](const RawMetric& sample, Json::Value& metrics) { metrics[kCharge] = sample.chargeRatio * 100.0; });
}

}  // namespace Torv::OS::Diagnostics
