#pragma once

#include <string>

#include <android-base/result.h>
#include <android-base/unique_fd.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace platform {

// The address of a local socket <directory>/<name>, for bind(2) and connect(2). An address holds 107 bytes
// only, so it names the directory by a descriptor (/proc/self/fd/<n>/<name>), and the directory's path may be
// as long as a path can be. The address is valid as long as this object lives, in this process.
class SocketPath {
 public:
  // The longest name that fits whatever number the descriptor has.
  static constexpr size_t kMaxName = sizeof(sockaddr_un::sun_path) - sizeof("/proc/self/fd/2147483647/");

  // Returns an error that names the directory if it cannot be opened, or the name if it is longer than
  // kMaxName. `name` is a file name, without a "/".
  [[nodiscard]] static android::base::Result<SocketPath> of(const std::string& directory,
                                                            const std::string& name);

  const sockaddr* address() const { return reinterpret_cast<const sockaddr*>(&mAddress); }
  socklen_t size() const { return sizeof(mAddress); }
  // The directory, for the system calls that take one (unlinkat, fchmodat, renameat). Owned by this object.
  int directory() const { return mDirectory.get(); }

 private:
  SocketPath() = default;

  android::base::unique_fd mDirectory;
  sockaddr_un mAddress{};
};

}  // namespace platform
