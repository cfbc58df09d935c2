#include "ServiceAddress.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/strings.h>

#include "Limits.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"

namespace platform::binder {
namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::StringReplace;
using android::base::unique_fd;

constexpr size_t kMaxName = 127;
constexpr char kNameCharacters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./-";
constexpr char kSlash[] = "%2F";
constexpr char kDot[] = "%2E";

std::string directoryOfServices() {
  return runtimeDirectory() + "/binder";
}

void setSendTimeout(int socket, std::chrono::milliseconds time) {
  const timeval value{time.count() / 1000, time.count() % 1000 * 1000};
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &value, sizeof(value));
}

}  // namespace

Result<ServiceAddress> addressOf(const std::string& name) {
  if (name.empty() || name.size() > kMaxName ||
      name.find_first_not_of(kNameCharacters) != std::string::npos) {
    return Error() << "a service's name is 1 to " << kMaxName << " letters, digits and _./-";
  }
  std::string file = StringReplace(name, "/", kSlash, /*all=*/true);
  if (file.front() == '.') file.replace(0, 1, kDot);
  if (file.size() > SocketPath::kMaxName) return Error() << "a service's name has to fit a socket's name";
  return ServiceAddress{directoryOfServices(), std::move(file)};
}

std::vector<std::string> publishedNames() {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directoryOfServices(), error), end; !error && entry != end;
       entry.increment(error)) {
    if (!entry->is_socket(error)) continue;
    const std::string file = StringReplace(entry->path().filename().string(), kSlash, "/", /*all=*/true);
    names.push_back(StringReplace(file, kDot, ".", /*all=*/false));
  }
  std::sort(names.begin(), names.end());
  return names;
}

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
  unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  // The umask has no say in who may call a service. Nobody can connect before listen().
  if (!fd.ok() || bind(fd.get(), path->address(), path->size()) != 0 ||
      fchmodat(path->directory(), address.file.c_str(), 0666, 0) != 0 || listen(fd.get(), kBacklog) != 0) {
    return ErrnoError() << "cannot listen at " << address.path();
  }
  return fd;
}

Result<unique_fd> connectTo(const ServiceAddress& address) {
  auto path = SocketPath::of(address.directory, address.file);
  if (!path.ok()) return path.error();
  unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.ok()) return ErrnoError() << "cannot make a socket";
  const auto tryOnce = [&] {
    return TEMP_FAILURE_RETRY(connect(fd.get(), path->address(), path->size())) == 0;
  };
  const auto deadline = std::chrono::steady_clock::now() + kConnectPatience;
  setSendTimeout(fd.get(), kConnectTurn);
  bool connected = tryOnce();
  while (!connected && errno == EAGAIN && std::chrono::steady_clock::now() < deadline) {
    // A blocking connect(2) waits for its turn, but wakes up too late if others connect without waiting. So
    // in between the client tries as often as they do.
    fcntl(fd.get(), F_SETFL, O_NONBLOCK);
    for (int tries = 0; !connected && tries < kConnectTries; ++tries) connected = tryOnce();
    fcntl(fd.get(), F_SETFL, 0);
    if (!connected) connected = tryOnce();
  }
  if (!connected) return ErrnoError() << "cannot connect to " << address.path();
  setSendTimeout(fd.get(), std::chrono::milliseconds(0));  // no time-out
  return fd;
}

}  // namespace platform::binder
