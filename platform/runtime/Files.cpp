#include "runtime/Files.h"

#include <cerrno>
#include <filesystem>
#include <utility>

#include <android-base/file.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

using android::base::ErrnoError;
using android::base::Result;
using android::base::unique_fd;

namespace {

// If root writes the open file `fd`, gives it to the owner of the file at `path`, or of its directory if
// there is no such file.
bool leaveToOwner(int fd, const std::string& path) {
  if (geteuid() != 0) return true;
  struct stat owner {};
  const std::string directory = std::filesystem::path(path).parent_path();
  if (stat(path.c_str(), &owner) != 0 && stat(directory.c_str(), &owner) != 0) return false;
  return fchown(fd, owner.st_uid, owner.st_gid) == 0;
}

Result<unique_fd> openLockFile(const std::string& path) {
  constexpr mode_t kOwnerOnly = 0600;
  unique_fd fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kOwnerOnly));
  if (!fd.ok()) return ErrnoError() << "cannot open " << path;
  if (fchmod(fd.get(), kOwnerOnly) != 0) return ErrnoError() << "cannot close " << path << " to other users";
  if (!leaveToOwner(fd.get(), std::filesystem::path(path).parent_path())) {
    return ErrnoError() << "cannot give " << path << " to its owner";
  }
  return fd;
}

Result<unique_fd> lock(const std::string& path, int operation) {
  Result<unique_fd> fd = openLockFile(path);
  if (fd.ok() && TEMP_FAILURE_RETRY(flock(fd->get(), operation)) != 0) {
    return ErrnoError() << "cannot lock " << path;
  }
  return fd;
}

Result<void> writeAndRename(const unique_fd& fd, const std::string& temporary, const std::string& path,
                            std::string_view contents) {
  constexpr mode_t kReadableByAll = 0644;
  if (!android::base::WriteFully(fd, contents.data(), contents.size())) {
    return ErrnoError() << "cannot write " << temporary;
  }
  if (fchmod(fd.get(), kReadableByAll) != 0) return ErrnoError() << "cannot set the mode of " << temporary;
  if (!leaveToOwner(fd.get(), path)) return ErrnoError() << "cannot give " << temporary << " to its owner";
  if (rename(temporary.c_str(), path.c_str()) != 0) return ErrnoError() << "cannot replace " << path;
  return {};
}

}  // namespace

Result<unique_fd> lockFile(const std::string& path) {
  return lock(path, LOCK_EX);
}

Result<unique_fd> tryLockFile(const std::string& path) {
  return lock(path, LOCK_EX | LOCK_NB);
}

Result<void> replaceFile(const std::string& path, std::string_view contents) {
  std::string temporary = path + ".XXXXXX";
  const unique_fd fd(mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd.ok()) return ErrnoError() << "cannot make a file beside " << path;
  Result<void> replaced = writeAndRename(fd, temporary, path, contents);
  if (!replaced.ok()) unlink(temporary.c_str());
  return replaced;
}

}  // namespace platform
