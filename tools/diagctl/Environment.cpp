#include "Environment.h"

#include <cstdlib>
#include <string_view>

#include <android-base/unique_fd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/Files.h"
#include "runtime/RuntimeDirectory.h"

namespace diagctl {
namespace {

constexpr char kDeviceRoot[] = "TORV_DEVICE_ROOT";
constexpr size_t kMaxBytes = 4096;

// If others may write to the directory, a stranger's file would make diagctl read a stranger's files as if
// they were the service's. The directory's owner is believed, because the service runs as that user. The open
// descriptor is checked, not the path, which may change in between.
bool isTrusted(int fd, const std::string& directory) {
  struct stat file {};
  struct stat parent {};
  if (fstat(fd, &file) != 0 || stat(directory.c_str(), &parent) != 0) return false;
  return file.st_uid == 0 || file.st_uid == getuid() || file.st_uid == parent.st_uid;
}

}  // namespace

// No error is told: without the file diagctl sees the device's own paths, and doctor names the ones that it
// tried.
void adoptServiceEnvironment() {
  if (getenv(kDeviceRoot) != nullptr) return;
  const std::string directory = platform::runtimeDirectory();
  const auto fd = Torv::Base::openForReading(directory + '/' + kEnvironmentFile);
  if (!fd.ok() || !isTrusted(fd->get(), directory)) return;
  const auto text = Torv::Base::readToEnd(fd->get(), kMaxBytes);
  if (!text.ok()) return;
  const std::string wanted = '\n' + std::string(kDeviceRoot) + '=';
  const std::string lines = '\n' + *text;
  const size_t at = lines.find(wanted);
  if (at == std::string::npos) return;
  const size_t value = at + wanted.size();
  setenv(kDeviceRoot, lines.substr(value, lines.find('\n', value) - value).c_str(), 0);
}

}  // namespace diagctl
