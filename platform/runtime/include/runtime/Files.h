// Changing files that several processes share.
#pragma once

#include <string>
#include <string_view>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

namespace platform {

// Takes an exclusive flock(2) on the file `path` and returns its descriptor; closing that ends the lock. The
// file is made if it is missing, and has the mode 0600, also if it existed with another one: otherwise any
// user could open the file and hold the lock for ever. Root leaves the file to the owner of its directory.
//
// lockFile() waits for another holder, tryLockFile() returns the error EWOULDBLOCK if there is one. Both
// return an error that names the path if the file cannot be opened or given its mode.
[[nodiscard]] android::base::Result<android::base::unique_fd> lockFile(const std::string& path);
[[nodiscard]] android::base::Result<android::base::unique_fd> tryLockFile(const std::string& path);

// Replaces the contents of the file `path`, or makes it. A reader sees the old or the new text, never a part:
// the text goes into a temporary file in the same directory, which is then renamed. Returns an error that
// names the path if a step fails; then the old file is unchanged. The file's mode is 0644. Root leaves it to
// the owner that it had, or to the owner of the directory.
[[nodiscard]] android::base::Result<void> replaceFile(const std::string& path, std::string_view contents);

}  // namespace platform
