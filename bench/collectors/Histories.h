#pragma once

#include <cstdlib>
#include <memory>

#include "BatteryCollector.h"
#include "Device.h"
#include "systemstatecollector/SystemStateCollectorManager.h"

namespace bench {

// A manager whose seven histories hold 60 samples each, from a Device. Aborts if the manager cannot be built.
struct Histories {
  static constexpr int kSamples = 60;

  Histories() {
    setenv("TORV_DEVICE_ROOT", device.path().c_str(), 1);
    manager = Torv::OS::Diagnostics::SystemStateCollectorManager::makeDefaultManager(statistics, chargeFiles);
    unsetenv("TORV_DEVICE_ROOT");
    if (manager == nullptr) abort();
    // Some sources are sampled on every second poll only.
    for (int second = 0; second < 2 * kSamples; ++second) {
      device.advanceTo(second);
      manager->pollCollectors();
    }
  }

  Device device;
  Torv::OS::Diagnostics::PollStatistics statistics;
  Torv::OS::Diagnostics::ChargeFiles chargeFiles;
  std::unique_ptr<Torv::OS::Diagnostics::SystemStateCollectorManager> manager;
};

}  // namespace bench
