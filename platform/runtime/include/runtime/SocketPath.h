#pragma once

#include <string>

#include <sys/socket.h>
#include <sys/un.h>

#include <android-base/unique_fd.h>

namespace platform {

// The address of a local socket <directory>/<name>, for bind(2) and connect(2). A path that is too long for
// sun_path (107 bytes) goes through /proc/self/fd/<the directory>, so it is good only while this object lives
// and in this process.
class SocketPath {
 public:
  // Opens the directory, which has to exist. An object that is not ok() says why in error().
  SocketPath(const std::string& directory, const std::string& name);

  bool ok() const { return mError.empty(); }
  const std::string& error() const { return mError; }
  const sockaddr* address() const { return reinterpret_cast<const sockaddr*>(&mAddress); }
  socklen_t size() const { return sizeof(mAddress); }
  // The directory, for the *at calls (unlinkat, fchmodat).
  int directory() const { return mDirectory.get(); }

 private:
  android::base::unique_fd mDirectory;
  sockaddr_un mAddress{};
  std::string mError;
};

}  // namespace platform
