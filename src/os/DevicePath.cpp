#include "os/DevicePath.h"

#include <cstdlib>

namespace Torv::OS {

std::string devicePath(std::string_view absolutePath) {
  const char* root = std::getenv("TORV_DEVICE_ROOT");
  std::string path = root != nullptr ? root : "";
  path += absolutePath;
  return path;
}

}  // namespace Torv::OS
