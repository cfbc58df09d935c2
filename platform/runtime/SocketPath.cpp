#include "runtime/SocketPath.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>

namespace platform {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

Result<SocketPath> SocketPath::of(const std::string& directory, const std::string& name) {
  if (name.size() > kMaxName) return Error(ENAMETOOLONG) << "cannot make a socket named " << name;
  SocketPath made;
  made.mDirectory.reset(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!made.mDirectory.ok()) return ErrnoError() << "cannot open the directory " << directory;
  const std::string path = "/proc/self/fd/" + std::to_string(made.directory()) + "/" + name;
  made.mAddress.sun_family = AF_UNIX;
  memcpy(made.mAddress.sun_path, path.c_str(), path.size() + 1);
  return made;
}

}  // namespace platform
