#pragma once

#include <cstdint>

namespace Torv::OS::Diagnostics {

// How much one collector keeps and how often it is sampled. A value: every collector holds a copy.
class SystemStateCollectorConfig {
 public:
  SystemStateCollectorConfig(uint32_t maxSamples, uint32_t sampleRate)
      : mMaxSamples(maxSamples), mSampleRate(sampleRate) {}
  virtual ~SystemStateCollectorConfig() = default;
  SystemStateCollectorConfig(const SystemStateCollectorConfig&) = default;
  SystemStateCollectorConfig& operator=(const SystemStateCollectorConfig&) = default;

  // Samples kept; the oldest gives way to a new one.
  virtual uint32_t getMaxSamples() const { return mMaxSamples; }
  // The collector is sampled on every poll whose number this divides: 1 is every poll, 2 every second, 0
  // none.
  virtual uint32_t getSampleRate() const { return mSampleRate; }

 private:
  uint32_t mMaxSamples;
  uint32_t mSampleRate;
};

}  // namespace Torv::OS::Diagnostics
