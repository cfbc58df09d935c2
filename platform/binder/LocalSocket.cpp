#include "LocalSocket.h"

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

namespace platform::binder {
namespace {

using android::base::unique_fd;

bool addressOf(int dirFd, const std::string& name, sockaddr_un* address) {
  const std::string path = "/proc/self/fd/" + std::to_string(dirFd) + "/" + name;
  if (name.size() > kMaxSocketName || path.size() >= sizeof(address->sun_path)) {
    errno = ENAMETOOLONG;
    return false;
  }
  *address = {};
  address->sun_family = AF_UNIX;
  memcpy(address->sun_path, path.c_str(), path.size() + 1);
  return true;
}

const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

unique_fd listenAt(int dirFd, const std::string& name) {
  sockaddr_un address{};
  if (!addressOf(dirFd, name, &address)) return {};
  unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.ok() || bind(fd.get(), generic(address), sizeof(address)) != 0) return {};
  // The umask has no say in who may call a service.
  if (fchmodat(dirFd, name.c_str(), 0666, 0) != 0 || listen(fd.get(), SOMAXCONN) != 0) {
    const int error = errno;
    unlinkat(dirFd, name.c_str(), 0);
    errno = error;
    return {};
  }
  return fd;
}

unique_fd connectTo(int dirFd, const std::string& name, bool wait) {
  sockaddr_un address{};
  if (!addressOf(dirFd, name, &address)) return {};
  unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (wait ? 0 : SOCK_NONBLOCK), 0));
  if (!fd.ok() || TEMP_FAILURE_RETRY(connect(fd.get(), generic(address), sizeof(address))) != 0) return {};
  return fd;
}

unique_fd acceptFrom(int listener) {
  return unique_fd(TEMP_FAILURE_RETRY(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)));
}

Peer peerOf(int socket) {
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  // Whom the kernel does not know gets a uid that nobody trusts.
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
    return {static_cast<uid_t>(-1), 0};
  }
  return {credentials.uid, credentials.pid};
}

ssize_t sendFrame(int socket, const FrameHeader& header, const uint8_t* payload, size_t offset, int flags) {
  iovec parts[2];
  size_t count = 0;
  if (offset < sizeof(header)) {
    auto* const bytes = reinterpret_cast<uint8_t*>(const_cast<FrameHeader*>(&header));
    parts[count++] = {bytes + offset, sizeof(header) - offset};
  }
  const size_t sent = offset > sizeof(header) ? offset - sizeof(header) : 0;
  if (sent < header.size) parts[count++] = {const_cast<uint8_t*>(payload) + sent, header.size - sent};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = count;
  return TEMP_FAILURE_RETRY(sendmsg(socket, &message, flags | MSG_NOSIGNAL));
}

}  // namespace platform::binder
