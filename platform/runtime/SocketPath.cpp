#include "runtime/SocketPath.h"

#include <cstring>
#include <utility>

#include <fcntl.h>

namespace platform {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

Result<SocketPath> SocketPath::of(const std::string& directory, const std::string& name) {
  if (name.size() > kMaxName) return Error(ENAMETOOLONG) << "cannot make a socket named " << name;
  unique_fd fd(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!fd.ok()) return ErrnoError() << "cannot open the directory " << directory;
  return SocketPath(std::move(fd), name);
}

SocketPath::SocketPath(unique_fd directory, const std::string& name) : mDirectory(std::move(directory)) {
  const std::string path = "/proc/self/fd/" + std::to_string(mDirectory.get()) + "/" + name;
  mAddress.sun_family = AF_UNIX;
  memcpy(mAddress.sun_path, path.c_str(), path.size() + 1);
}

}  // namespace platform
