#include "runtime/SocketPath.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>

namespace platform {

SocketPath::SocketPath(const std::string& directory, const std::string& name) {
  mAddress.sun_family = AF_UNIX;
  mDirectory.reset(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!mDirectory.ok()) {
    mError = "cannot open the directory " + directory + ": " + strerror(errno);
    return;
  }
  std::string path = directory + "/" + name;
  if (path.size() >= sizeof(mAddress.sun_path)) {
    path = "/proc/self/fd/" + std::to_string(mDirectory.get()) + "/" + name;
  }
  if (path.size() >= sizeof(mAddress.sun_path)) {
    mError = "the socket name " + name + " is too long";
    return;
  }
  memcpy(mAddress.sun_path, path.c_str(), path.size() + 1);
}

}  // namespace platform
