#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <android-base/unique_fd.h>

namespace platform {

// An exclusive flock(2) on `path` (made where it is missing), held until destruction.
class FileLock {
 public:
  // Waits for the lock. An object that does not hold() says why in error().
  explicit FileLock(const std::string& path);

  bool holds() const { return mFd.ok(); }
  const std::string& error() const { return mError; }

 private:
  android::base::unique_fd mFd;
  std::string mError;
};

// Puts `contents` in the place of `path` so that a reader sees the old or the new text and never a part
// (a temporary file beside it, then rename). Root leaves the owner of an existing file, or of the directory,
// as it was. Returns what failed, with the path and errno's text, or nothing.
[[nodiscard]] std::optional<std::string> replaceFile(const std::string& path, std::string_view contents);

// The whole file. Nothing where it cannot be read, errno then says why.
[[nodiscard]] std::optional<std::string> readFile(const std::string& path);

}  // namespace platform
