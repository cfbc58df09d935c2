#pragma once

#include <string>

namespace bench {

// A directory for TORV_DEVICE_ROOT with the seven sources of a device of eight processors. Removed with the
// object.
class Device {
 public:
  Device();
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  const std::string& path() const { return mPath; }
  // Rewrites all files with the counters that they have `second` seconds after the first.
  void advanceTo(int second) const;

 private:
  void write(const std::string& name, const std::string& text) const;

  std::string mPath;
};

}  // namespace bench
