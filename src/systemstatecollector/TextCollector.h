#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "HistoryReport.h"
#include "TextSource.h"
#include "base/Mutex.h"
#include "systemstatecollector/CircularBuffer.h"
#include "systemstatecollector/SystemStateCollector.h"

namespace Torv::OS::Diagnostics {

// A collector whose source is one text file that the kernel writes anew for each reader. The file is opened
// once; a sample is its whole text. Empty, torn or unreadable texts are samples like any other.
class TextCollector : public SystemStateCollector {
 public:
  struct RawMetric {
    uint64_t timeMs = 0;
    std::string text;
  };

  // False where the stream's bad bit was set when it came here. A read that fails is no such thing: it stores
  // an empty text, and the next one tries again.
  bool collectSystemStateData() override EXCLUDES(mMutex);
  std::unique_ptr<History> dumpSystemStateHistory() override EXCLUDES(mMutex);

 protected:
  TextCollector(const SystemStateCollectorConfig& config, TextSource source, Evaluate order);

 private:
  virtual std::string historyName() const = 0;
  virtual void logBadStream() const = 0;
  // Turns a sample into metrics. Called for each sample of a dump, in the order given at construction,
  // without mMutex.
  virtual void extractMetrics(const RawMetric& sample, Json::Value& out) = 0;

  uint64_t readFromCircularBuffer(std::vector<RawMetric>& out) const EXCLUDES(mMutex);

  const Evaluate mOrder;
  // The samples of the dump under way; only its slots outlive it. Were they allocated for each dump, glibc
  // would gather up the small blocks of the report before, which this one could have had as they are.
  std::vector<RawMetric> mDumped;
  TextSource mSource;  // only the polling thread's
  mutable Base::Mutex mMutex;
  const std::unique_ptr<CircularBuffer<RawMetric>> mBuffer PT_GUARDED_BY(mMutex);
};

}  // namespace Torv::OS::Diagnostics
