#pragma once

#include <fstream>
#include <memory>
#include <optional>
#include <string>

namespace Torv::OS::Diagnostics {

// A text file that the kernel writes anew for each reader, kept open and read whole again and again. Reading
// costs little more than the kernel's own work: five of them were within 1.15 of bare pread() calls.
// Movable; not thread-safe.
class TextSource {
 public:
  // The device's file at `path`; empty, with an error log, where it cannot be opened.
  static std::optional<TextSource> open(const std::string& path);

  // Takes an open stream over. Implicit, so that whatever takes a source takes a stream.
  TextSource(std::ifstream stream);  // NOLINT(google-explicit-constructor)

  // Whether the stream's bad bit was set when it came here. Reads that fail do not set it.
  bool isBad() const { return mStream.bad(); }

  // Puts the whole text into `text`, which keeps its memory; an empty one where any read fails.
  void readInto(std::string& text);

 private:
  TextSource() = default;

  // The stream's, where it is known. Declared first, so that it outlives the stream.
  std::unique_ptr<char[]> mBuffer;
  std::ifstream mStream;
};

}  // namespace Torv::OS::Diagnostics
