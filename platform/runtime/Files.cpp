#include "runtime/Files.h"

#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/file.h>

namespace platform {
namespace {

std::string failure(const std::string& what, const std::string& path) {
  return what + " " + path + ": " + strerror(errno);
}

// Who a new file at `path` should belong to when root writes it: whoever owns it now, else the directory.
bool ownerOf(const std::string& path, struct stat* status) {
  if (stat(path.c_str(), status) == 0) return true;
  return stat(std::filesystem::path(path).parent_path().c_str(), status) == 0;
}

}  // namespace

FileLock::FileLock(const std::string& path) {
  android::base::unique_fd fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!fd.ok()) {
    mError = failure("cannot open", path);
    return;
  }
  struct stat status {};
  if (geteuid() == 0 && ownerOf(std::filesystem::path(path).parent_path(), &status) &&
      fchown(fd.get(), status.st_uid, status.st_gid) != 0) {
    mError = failure("cannot give to its owner", path);
    return;
  }
  if (TEMP_FAILURE_RETRY(flock(fd.get(), LOCK_EX)) != 0) {
    mError = failure("cannot lock", path);
    return;
  }
  mFd = std::move(fd);
}

std::optional<std::string> replaceFile(const std::string& path, std::string_view contents) {
  std::string temporary = path + ".XXXXXX";
  android::base::unique_fd fd(mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd.ok()) return failure("cannot make a file beside", path);
  std::optional<std::string> error;
  struct stat status {};
  if (!android::base::WriteFully(fd, contents.data(), contents.size())) {
    error = failure("cannot write", temporary);
  } else if (fchmod(fd.get(), 0644) != 0) {
    error = failure("cannot set the mode of", temporary);
  } else if (geteuid() == 0 && ownerOf(path, &status) &&
             fchown(fd.get(), status.st_uid, status.st_gid) != 0) {
    error = failure("cannot give to its owner", temporary);
  } else if (rename(temporary.c_str(), path.c_str()) != 0) {
    error = failure("cannot replace", path);
  }
  if (error) unlink(temporary.c_str());
  return error;
}

std::optional<std::string> readFile(const std::string& path) {
  std::string text;
  if (!android::base::ReadFileToString(path, &text)) return std::nullopt;
  return text;
}

}  // namespace platform
