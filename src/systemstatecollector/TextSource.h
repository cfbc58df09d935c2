#pragma once

#include <cstddef>
#include <fstream>
#include <optional>
#include <string>

#include <android-base/unique_fd.h>

namespace Torv::OS::Diagnostics {

// A text file that the kernel writes anew for each reader, kept open and read whole again and again.
// Movable; not thread-safe.
class TextSource {
 public:
  // The device's file at `path`; empty, with an error log, where it cannot be opened. A read of it is one
  // system call, straight into the text.
  static std::optional<TextSource> open(const std::string& path);

  // Takes an open stream over. Implicit, so that whatever takes a source takes a stream.
  TextSource(std::ifstream stream);  // NOLINT(google-explicit-constructor)

  // Whether the stream's bad bit was set when it came here. Reads that fail do not set it.
  bool isBad() const { return mStream.bad(); }

  // Puts the whole text into `text`, which keeps its memory; an empty one where any read fails.
  void readInto(std::string& text);

 private:
  explicit TextSource(android::base::unique_fd file);

  void readFile(std::string& text);
  void readStream(std::string& text);

  android::base::unique_fd mFile;  // not set where the source is a stream
  std::ifstream mStream;
  size_t mLength = 1024;  // of the last text of mFile: a guess at the next one's
};

}  // namespace Torv::OS::Diagnostics
