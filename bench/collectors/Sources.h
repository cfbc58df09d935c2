// The five files that a Linux machine has for the collectors, for those who read them with and without us.
#pragma once

#include <array>

#include <android-base/unique_fd.h>
#include <fcntl.h>

namespace bench {

// The processors' last: the service reads them at every second poll only.
inline constexpr std::array<const char*, 5> kSourcePaths = {
    "/proc/pressure/cpu", "/proc/pressure/memory", "/proc/pressure/io", "/proc/meminfo", "/proc/stat"};

using SourceFiles = std::array<android::base::unique_fd, kSourcePaths.size()>;

// Those that the machine lacks are not open.
inline SourceFiles openSources() {
  SourceFiles files;
  for (size_t i = 0; i < files.size(); ++i) files[i].reset(open(kSourcePaths[i], O_RDONLY | O_CLOEXEC));
  return files;
}

}  // namespace bench
