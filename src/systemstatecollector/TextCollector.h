#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "SampledCollector.h"
#include "TextSource.h"

namespace Torv::OS::Diagnostics {

struct TextSample {
  uint64_t timeMs = 0;  // milliseconds of the monotonic clock
  std::string text;     // the whole file; empty if it could not be read
};

// A collector whose source is one text file that the kernel writes anew for each reader. The file is opened
// once and stays open; a sample is its whole text. A text that is empty, cut short or of another form is a
// sample like any other: its metrics are what can be read of it.
//
// Dumps of one collector may run at the same time, unless its class says otherwise.
class TextCollector : public SampledCollector<TextSample> {
 public:
  // Takes one sample. Returns false, logs an error and stores nothing if the source is a stream whose bad bit
  // was set before. A read that fails stores an empty text and returns true, and the next sample tries again.
  // Only the first of several failed reads in a row is logged.
  bool collectSystemStateData() override EXCLUDES(mMutex);

 protected:
  // `info` must outlive the collector.
  TextCollector(const SystemStateCollectorConfig& config, const SourceInfo& info, TextSource source);

  // The factory of the collectors whose constructor takes a configuration and a source: opens the source that
  // `info` names. Returns null and logs an error if it cannot be opened.
  template <typename Collector>
  static std::unique_ptr<Collector> initFrom(const SourceInfo& info,
                                             const SystemStateCollectorConfig& config) {
    std::optional<TextSource> source = TextSource::open(info.path);
    if (!source) return nullptr;
    return std::make_unique<Collector>(config, std::move(*source));
  }

 private:
  // Both are used by the polling thread only.
  TextSource mSource;
  bool mIsReadable = true;
};

}  // namespace Torv::OS::Diagnostics
