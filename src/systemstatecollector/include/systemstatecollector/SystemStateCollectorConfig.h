#pragma once

#include <cstdint>

namespace Torv::OS::Diagnostics {

// How much one collector keeps and how often it is sampled. A value type: every collector holds a copy.
class SystemStateCollectorConfig {
 public:
  // 0 samples keeps nothing; a rate of 0 never samples.
  SystemStateCollectorConfig(uint32_t maxSamples, uint32_t sampleRate)
      : mMaxSamples(maxSamples), mSampleRate(sampleRate) {}
  virtual ~SystemStateCollectorConfig() = default;
  SystemStateCollectorConfig(const SystemStateCollectorConfig&) = default;
  SystemStateCollectorConfig& operator=(const SystemStateCollectorConfig&) = default;

  // Returns how many samples are kept. A new one replaces the oldest.
  virtual uint32_t getMaxSamples() const { return mMaxSamples; }
  // Returns the number that divides the numbers of the polls that sample the collector, counted from 0: 1 is
  // every poll, 2 every second poll, 0 none.
  virtual uint32_t getSampleRate() const { return mSampleRate; }

 private:
  uint32_t mMaxSamples;
  uint32_t mSampleRate;
};

}  // namespace Torv::OS::Diagnostics
