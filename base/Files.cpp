#include "base/Files.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Torv::Base {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

Result<unique_fd> openForReading(const std::string& path) {
  // O_NONBLOCK lets open() return for a FIFO that has no writer. Reads of regular files ignore it.
  unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)));
  if (!fd.ok()) return ErrnoError() << "cannot open " << path;
  struct stat status {};
  if (fstat(fd.get(), &status) != 0) return ErrnoError() << "cannot look at " << path;
  if (!S_ISREG(status.st_mode)) return Error(EINVAL) << path << " is not a regular file";
  return fd;
}

Result<std::string> readToEnd(int fd, size_t maxBytes) {
  // Most files are small. A string's new bytes are cleared before they are read into, so a first step of 64
  // KiB would cost more than the reading.
  constexpr size_t kFirstRead = 4096;
  std::string text;
  size_t length = 0;
  while (length <= maxBytes) {
    if (length == text.size()) text.resize(std::min(std::max(2 * length, kFirstRead), maxBytes + 1));
    const ssize_t got = TEMP_FAILURE_RETRY(read(fd, text.data() + length, text.size() - length));
    if (got < 0) return ErrnoError() << "cannot read";
    if (got == 0) break;
    length += static_cast<size_t>(got);
  }
  if (length > maxBytes) return Error(EFBIG) << "more than " << maxBytes << " bytes";
  text.resize(length);
  return text;
}

Result<std::string> readFile(const std::string& path, size_t maxBytes) {
  auto fd = openForReading(path);
  if (!fd.ok()) return fd.error();
  auto text = readToEnd(fd->get(), maxBytes);
  if (!text.ok()) return Error() << path << ": " << text.error();
  return text;
}

}  // namespace Torv::Base
