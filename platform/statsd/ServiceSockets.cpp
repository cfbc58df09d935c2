#include "ServiceSockets.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "SocketNames.h"
#include "runtime/SocketPath.h"

namespace libstatsd {
namespace {

using android::base::unique_fd;

std::string failure(const std::string& what) {
  return what + ": " + strerror(errno);
}

std::variant<unique_fd, std::string> bindSocket(const std::string& directory, const char* name, int type,
                                                mode_t mode) {
  const std::string shown = directory + "/" + name;
  const platform::SocketPath path(directory, name);
  if (!path.ok()) return path.error();
  unique_fd fd(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.ok()) return failure("cannot make a socket");
  const int on = 1;
  if (type == SOCK_DGRAM && setsockopt(fd.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0) {
    return failure("cannot ask for credentials on " + shown);
  }
  if (unlinkat(path.directory(), name, 0) != 0 && errno != ENOENT) return failure("cannot remove " + shown);
  if (bind(fd.get(), path.address(), path.size()) != 0) return failure("cannot bind " + shown);
  if (fchmodat(path.directory(), name, mode, 0) != 0) return failure("cannot set the mode of " + shown);
  if (type == SOCK_STREAM && listen(fd.get(), SOMAXCONN) != 0) return failure("cannot listen on " + shown);
  return fd;
}

}  // namespace

std::variant<ServiceSockets, std::string> bindServiceSockets(const std::string& directory) {
  constexpr mode_t kWriteOnly = 0222;
  constexpr mode_t kReadWrite = 0666;
  auto atoms = bindSocket(directory, kAtomSocket, SOCK_DGRAM, kWriteOnly);
  if (auto* error = std::get_if<std::string>(&atoms)) return std::move(*error);
  auto status = bindSocket(directory, kStatusSocket, SOCK_STREAM, kReadWrite);
  if (auto* error = std::get_if<std::string>(&status)) return std::move(*error);
  return ServiceSockets{std::get<unique_fd>(std::move(atoms)), std::get<unique_fd>(std::move(status))};
}

size_t kernelQueueLength() {
  constexpr size_t kOften = 512;
  size_t length = 0;
  std::ifstream setting("/proc/sys/net/unix/max_dgram_qlen");
  return (setting >> length ? length : kOften) + 1;
}

}  // namespace libstatsd
