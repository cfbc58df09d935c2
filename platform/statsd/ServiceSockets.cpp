#include "ServiceSockets.h"

#include <cerrno>
#include <fstream>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/SocketPath.h"

namespace libstatsd {

using android::base::ErrnoError;
using android::base::Result;
using android::base::unique_fd;

namespace {

Result<unique_fd> bindSocket(const std::string& directory, const char* name, int type, mode_t mode) {
  const std::string shown = directory + "/" + name;
  auto path = platform::SocketPath::of(directory, name);
  if (!path.ok()) return path.error();
  unique_fd fd(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.ok()) return ErrnoError() << "cannot make a socket";
  const int on = 1;
  if (type == SOCK_DGRAM && setsockopt(fd.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0) {
    return ErrnoError() << "cannot ask for credentials on " << shown;
  }
  if (unlinkat(path->directory(), name, 0) != 0 && errno != ENOENT)
    return ErrnoError() << "cannot remove " << shown;
  if (bind(fd.get(), path->address(), path->size()) != 0) return ErrnoError() << "cannot bind " << shown;
  if (fchmodat(path->directory(), name, mode, 0) != 0)
    return ErrnoError() << "cannot set the mode of " << shown;
  if (type == SOCK_STREAM && listen(fd.get(), SOMAXCONN) != 0)
    return ErrnoError() << "cannot listen on " << shown;
  return fd;
}

}  // namespace

Result<ServiceSockets> bindServiceSockets(const std::string& directory) {
  constexpr mode_t kWriteOnly = 0222;
  constexpr mode_t kReadWrite = 0666;
  auto atoms = bindSocket(directory, kAtomSocket, SOCK_DGRAM, kWriteOnly);
  if (!atoms.ok()) return atoms.error();
  auto status = bindSocket(directory, kStatusSocket, SOCK_STREAM, kReadWrite);
  if (!status.ok()) return status.error();
  return ServiceSockets{*std::move(atoms), *std::move(status)};
}

size_t kernelQueueLength() {
  constexpr size_t kUsual = 512;
  size_t length = 0;
  std::ifstream setting("/proc/sys/net/unix/max_dgram_qlen");
  return (setting >> length ? length : kUsual) + 1;
}

}  // namespace libstatsd
