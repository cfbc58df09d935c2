#include "TextCollector.h"

#include <utility>

namespace Torv::OS::Diagnostics {

TextCollector::TextCollector(const SystemStateCollectorConfig& config, TextSource source, Evaluate order)
    : SystemStateCollector(config),
      mOrder(order),
      mSource(std::move(source)),
      mBuffer(std::make_unique<CircularBuffer<RawMetric>>(config.getMaxSamples())) {}

bool TextCollector::collectSystemStateData() {
  if (mSource.isBad()) {
    logBadStream();
    return false;
  }
  Base::LockGuard lock(mMutex);
  RawMetric& sample = mBuffer->reserve();
  sample.timeMs = Utils::monotonicMilliseconds();
  mSource.readInto(sample.text);
  return true;
}

std::unique_ptr<SystemStateCollector::History> TextCollector::dumpSystemStateHistory() {
  const uint64_t nowMs = Utils::monotonicMilliseconds();
  mDumped.resize(getMaxSamples());
  readFromCircularBuffer(mDumped);
  auto history =
      makeHistory(historyName(), nowMs, mDumped, mOrder,
                  [this](const RawMetric& sample, Json::Value& metrics) { extractMetrics(sample, metrics); });
  mDumped.clear();
  return history;
}

uint64_t TextCollector::readFromCircularBuffer(std::vector<RawMetric>& out) const {
  Base::LockGuard lock(mMutex);
  out.resize(mBuffer->size());
  return mBuffer->readAll(out.begin());
}

}  // namespace Torv::OS::Diagnostics
