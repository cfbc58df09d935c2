// What the five kinds of collectors have in common: who they are, the ring of their samples, and the dump.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "base/Mutex.h"
#include "systemstatecollector/CircularBuffer.h"
#include "systemstatecollector/SystemStateCollector.h"

namespace Torv::OS::Diagnostics {

// The facts about one source. Each collector's source file defines them as one constant.
struct SourceInfo {
  uint8_t id;                    // what getId() returns
  const char* path;              // the file on the device; DevicePath.h finds it elsewhere
  const char* historyName;       // the key of the report
  const char* description;       // what getDescription() returns
  const char* badStreamMessage;  // logged for a stream whose bad bit is set
};

// A collector that keeps its last samples in a ring. A derived class takes the samples
// (collectSystemStateData) and turns them into metrics (extractMetrics). `Sample` needs a member `timeMs`, in
// milliseconds of the monotonic clock.
template <typename Sample>
class SampledCollector : public SystemStateCollector {
 public:
  using RawMetric = Sample;

  uint8_t getId() const override { return mInfo.id; }
  std::string getDescription() const override { return mInfo.description; }
  std::unique_ptr<History> dumpSystemStateHistory() override EXCLUDES(mMutex);

 protected:
  // `info` must outlive the collector.
  SampledCollector(const SystemStateCollectorConfig& config, const SourceInfo& info)
      : SystemStateCollector(config), mInfo(info), mBuffer(config.getMaxSamples()) {}

  const SourceInfo& mInfo;
  mutable Base::Mutex mMutex;
  CircularBuffer<RawMetric> mBuffer GUARDED_BY(mMutex);

 private:
  // Adds the metrics of `sample` to `out`, an empty JSON object. Each dump calls this for all its samples,
  // oldest first, without mMutex.
  virtual void extractMetrics(const RawMetric& sample, Json::Value& out) = 0;

  // Replaces `out` by a copy of the samples, oldest first, and returns their number. A deque allocates small
  // blocks. For one large block, as of a vector, malloc tidies all its free lists, which makes a dump 3 %
  // slower.
  uint64_t readFromCircularBuffer(std::deque<RawMetric>& out) const EXCLUDES(mMutex) {
    const Base::LockGuard lock(mMutex);
    out.resize(mBuffer.size());
    return mBuffer.readAll(out.begin());
  }
};

template <typename Sample>
std::unique_ptr<SystemStateCollector::History> SampledCollector<Sample>::dumpSystemStateHistory() {
  const uint64_t nowMs = Utils::monotonicMilliseconds();
  std::deque<RawMetric> samples;
  readFromCircularBuffer(samples);
  Json::Value report = Utils::makeJsonReport(nowMs);
  for (const RawMetric& sample : samples) {
    Json::Value metrics(Json::objectValue);
    extractMetrics(sample, metrics);
    Utils::addTimeSeriesDataToJsonReport(report, nowMs - sample.timeMs, std::move(metrics));
  }
  Utils::reverseTimeSeries(report);
  return Utils::makeHistory(mInfo.historyName, report);
}

}  // namespace Torv::OS::Diagnostics
