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

namespace {

// Opens as openForReading() does, and stores the size that the file claims to have: 0 for files of procfs,
// a page for those of sysfs.
Result<unique_fd> openRegular(const std::string& path, size_t& claimedSize) {
  // O_NONBLOCK lets open() return for a FIFO that has no writer. Reads of regular files ignore it.
  unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)));
  if (!fd.ok()) return ErrnoError() << "cannot open " << path;
  struct stat status {};
  if (fstat(fd.get(), &status) != 0) return ErrnoError() << "cannot look at " << path;
  if (!S_ISREG(status.st_mode)) return Error(EINVAL) << path << " is not a regular file";
  claimedSize = static_cast<size_t>(status.st_size);
  return fd;
}

// Stops without another read if a read ends exactly at the claimed size, because that is the end of a file on
// a disk. For any other file the end is a read of nothing.
Result<std::string> read(int fd, size_t maxBytes, size_t claimedSize) {
  // A string's new bytes are cleared before they are read into, so large steps would cost more than the
  // reads.
  constexpr size_t kStep = 4096;
  const size_t firstRead = claimedSize > 0 ? std::min(claimedSize + 1, kStep) : kStep;
  std::string text;
  size_t length = 0;
  while (length <= maxBytes) {
    if (length == text.size()) text.resize(std::min(std::max(2 * length, firstRead), maxBytes + 1));
    const ssize_t got = TEMP_FAILURE_RETRY(::read(fd, text.data() + length, text.size() - length));
    if (got < 0) return ErrnoError() << "cannot read";
    if (got == 0) break;
    length += static_cast<size_t>(got);
    if (length == claimedSize && length < text.size()) break;
  }
  if (length > maxBytes) return Error(EFBIG) << "more than " << maxBytes << " bytes";
  text.resize(length);
  return text;
}

}  // namespace

Result<unique_fd> openForReading(const std::string& path) {
  size_t unused = 0;
  return openRegular(path, unused);
}

Result<std::string> readToEnd(int fd, size_t maxBytes) {
  return read(fd, maxBytes, 0);
}

Result<std::string> readFile(const std::string& path, size_t maxBytes) {
  size_t claimedSize = 0;
  auto fd = openRegular(path, claimedSize);
  if (!fd.ok()) return fd.error();
  auto text = read(fd->get(), maxBytes, claimedSize);
  if (!text.ok()) return Error() << path << ": " << text.error();
  return text;
}

}  // namespace Torv::Base
