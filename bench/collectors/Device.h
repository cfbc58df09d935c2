#pragma once

#include <string>

namespace bench {

// A device root (TORV_DEVICE_ROOT) with the seven sources as a device of eight processors has them.
class Device {
 public:
  Device();
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  const std::string& path() const { return mPath; }
  // Writes all texts anew, with the counters of second `second`.
  void advanceTo(int second) const;

 private:
  void write(const std::string& name, const std::string& text) const;

  std::string mPath;
};

}  // namespace bench
