#include "base/Files.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Torv::Base {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

namespace {

struct RegularFile {
  unique_fd fd;
  size_t statSize;  // by fstat(): 0 for files of procfs, a page for those of sysfs
};

Result<RegularFile> openRegularFile(const std::string& path) {
  // O_NONBLOCK lets open() return for a FIFO that has no writer. Reads of regular files ignore it.
  unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)));
  if (!fd.ok()) return ErrnoError() << "cannot open " << path;
  struct stat status {};
  if (fstat(fd.get(), &status) != 0) return ErrnoError() << "cannot look at " << path;
  if (!S_ISREG(status.st_mode)) return Error(EINVAL) << path << " is not a regular file";
  return RegularFile{std::move(fd), static_cast<size_t>(status.st_size)};
}

// Reads from the descriptor's position to the end of the file, which is a read of 0 bytes. A file on a disk
// also ends if a read stops at its `statSize`: that saves the read of 0 bytes.
Result<std::string> readAll(int fd, size_t maxBytes, size_t statSize) {
  // A string's new bytes are cleared before they are read into, so large steps would cost more than the
  // reads.
  constexpr size_t kStep = 4096;
  const size_t firstRead = statSize > 0 ? std::min(statSize + 1, kStep) : kStep;
  std::string text;
  size_t length = 0;
  while (length <= maxBytes) {
    if (length == text.size()) text.resize(std::min(std::max(2 * length, firstRead), maxBytes + 1));
    const ssize_t got = TEMP_FAILURE_RETRY(read(fd, text.data() + length, text.size() - length));
    if (got < 0) return ErrnoError() << "cannot read";
    if (got == 0) break;
    length += static_cast<size_t>(got);
    if (length == statSize && length < text.size()) break;
  }
  if (length > maxBytes) return Error(EFBIG) << "more than " << maxBytes << " bytes";
  text.resize(length);
  return text;
}

}  // namespace

Result<unique_fd> openForReading(const std::string& path) {
  auto file = openRegularFile(path);
  if (!file.ok()) return file.error();
  return std::move(file->fd);
}

Result<std::string> readToEnd(int fd, size_t maxBytes) {
  return readAll(fd, maxBytes, 0);
}

Result<std::string> readFile(const std::string& path, size_t maxBytes) {
  auto file = openRegularFile(path);
  if (!file.ok()) return file.error();
  auto text = readAll(file->fd.get(), maxBytes, file->statSize);
  if (!text.ok()) return Error() << path << ": " << text.error();
  return text;
}

}  // namespace Torv::Base
