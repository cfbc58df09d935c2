#include "Socket.h"

#include <cerrno>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Limits.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"

namespace platform::binder {
namespace {

using android::base::ErrnoError;
using android::base::Result;
using android::base::unique_fd;

void setSendTimeout(int socket, std::chrono::milliseconds time) {
  const timeval value{time.count() / 1000, time.count() % 1000 * 1000};
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &value, sizeof(value));
}

unique_fd streamSocket() {
  return unique_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

}  // namespace

Peer peerOf(int socket) {
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return {};
  return {credentials.uid, credentials.pid};
}

Result<unique_fd> listenAt(const ServiceAddress& address) {
  if (auto prepared = prepareRuntimeDirectory(address.directory); !prepared.ok()) return prepared.error();
  auto path = SocketPath::of(address.directory, address.file);
  if (!path.ok()) return path.error();
  unlinkat(path->directory(), address.file.c_str(), 0);
  unique_fd fd = streamSocket();
  // The umask has no say in who may call a service. Nobody can connect before listen().
  if (!fd.ok() || bind(fd.get(), path->address(), path->size()) != 0 ||
      fchmodat(path->directory(), address.file.c_str(), 0666, 0) != 0 || listen(fd.get(), SOMAXCONN) != 0) {
    return ErrnoError() << "cannot listen at " << address.path();
  }
  return fd;
}

Result<unique_fd> connectTo(const ServiceAddress& address) {
  auto path = SocketPath::of(address.directory, address.file);
  if (!path.ok()) return path.error();
  unique_fd fd = streamSocket();
  if (!fd.ok()) return ErrnoError() << "cannot make a socket";
  setSendTimeout(fd.get(), kConnectPatience);
  if (TEMP_FAILURE_RETRY(connect(fd.get(), path->address(), path->size())) != 0) {
    return ErrnoError() << "cannot connect to " << address.path();
  }
  setSendTimeout(fd.get(), std::chrono::milliseconds(0));  // no time-out
  return fd;
}

}  // namespace platform::binder
