// The five files that every Linux machine has for the collectors, for a reader without our code.
#pragma once

#include <array>

#include <android-base/unique_fd.h>
#include <fcntl.h>

namespace bench {

// /proc/stat is last because the service reads it every other second only.
inline constexpr std::array<const char*, 5> kSourcePaths = {
    "/proc/pressure/cpu", "/proc/pressure/memory", "/proc/pressure/io", "/proc/meminfo", "/proc/stat"};

using SourceFiles = std::array<android::base::unique_fd, kSourcePaths.size()>;

// Opens the files. A file that the machine lacks stays closed.
inline SourceFiles openSources() {
  SourceFiles files;
  for (size_t i = 0; i < files.size(); ++i) files[i].reset(open(kSourcePaths[i], O_RDONLY | O_CLOEXEC));
  return files;
}

}  // namespace bench
