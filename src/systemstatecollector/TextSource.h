#pragma once

#include <cstddef>
#include <fstream>
#include <optional>
#include <string>

#include <android-base/unique_fd.h>

namespace Torv::OS::Diagnostics {

// A text file that the kernel writes anew for each reader, kept open and read from its start again and again.
// Movable; not thread-safe.
class TextSource {
 public:
  // The longest text that is read, in bytes. /proc/stat of a machine with 500 processors has about half as
  // many.
  static constexpr size_t kMaxTextBytes = size_t{128} << 10;

  // Opens the device's file at `path`, without ever blocking. Returns nullopt and logs an error if it cannot
  // be opened or is no regular file. (The files of procfs and sysfs are regular files.)
  static std::optional<TextSource> open(const std::string& path);

  // Takes an open stream over. Implicit, so that a collector's constructor takes a stream as well as a
  // source.
  TextSource(std::ifstream stream);  // NOLINT(google-explicit-constructor)

  // Returns whether the stream's bad bit was set when it came here. Reads that fail do not set it.
  bool isBad() const { return mStream.bad(); }

  // Replaces `text` by the whole text, reusing its memory. Returns false and leaves `text` empty if a read
  // fails or the text is longer than kMaxTextBytes. Blocks as long as the file's driver does. Allocates only
  // if the text is longer than the ones before.
  bool readInto(std::string& text);

 private:
  explicit TextSource(android::base::unique_fd file);

  bool readFile(std::string& text);
  bool readStream(std::string& text);

  android::base::unique_fd mFile;  // not set if the source is a stream
  std::ifstream mStream;
  size_t mLength = 1024;  // of the last text of mFile: a guess at the next one's
};

}  // namespace Torv::OS::Diagnostics
