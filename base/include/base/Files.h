// Reading files that somebody else has put in place: configuration, properties, texts of the kernel.
#pragma once

#include <cstddef>
#include <string>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

namespace Torv::Base {

// Opens a file for reading, without ever blocking. Returns an error that names the path if the file cannot be
// opened or is no regular file (files of procfs and sysfs are regular files): a FIFO, a device, a socket or a
// directory in a file's place could block, or never end. The error's code is errno's, or EINVAL for such a
// file. The descriptor is close-on-exec.
[[nodiscard]] android::base::Result<android::base::unique_fd> openForReading(const std::string& path);

// Reads from the descriptor's position to the end of the file. Returns an error if a read fails, or EFBIG if
// there are more than `maxBytes` bytes. Allocates for what it reads, not for what the file claims to hold.
[[nodiscard]] android::base::Result<std::string> readToEnd(int fd, size_t maxBytes);

// Opens and reads a file of at most `maxBytes` bytes. Returns the errors of both functions above; each names
// the path, and EFBIG the limit.
[[nodiscard]] android::base::Result<std::string> readFile(const std::string& path, size_t maxBytes);

}  // namespace Torv::Base
