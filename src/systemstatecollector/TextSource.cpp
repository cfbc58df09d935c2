#include "TextSource.h"

#include <utility>

#include <android/log.h>

#include "os/DevicePath.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr std::streamsize kBufferBytes = std::streamsize{16} * 1024;

// Makes room for `size` characters and for the counters of a text of that size to grow digits, so that a slot
// that has been used a few times allocates no more.
void makeRoom(std::string& text, size_t size) {
  if (text.capacity() < size) text.reserve(size + size / 4 + 32);
  text.resize(size);
}

}  // namespace

std::optional<TextSource> TextSource::open(const std::string& path) {
  TextSource source;
  source.mBuffer = std::make_unique<char[]>(kBufferBytes);
  source.mStream.rdbuf()->pubsetbuf(source.mBuffer.get(), kBufferBytes);
  source.mStream.open(devicePath(path));
  if (!source.mStream.is_open()) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to open %s", path.c_str());
    return std::nullopt;
  }
  return source;
}

TextSource::TextSource(std::ifstream stream) : mStream(std::move(stream)) {}

void TextSource::readInto(std::string& text) {
  text.clear();
  mStream.clear();
  mStream.seekg(0);
  // peek() fills the buffer and keeps a failed read to a state bit, where sgetn() would throw it; so sgetn()
  // is asked only for what the buffer holds.
  while (mStream.peek() != std::ifstream::traits_type::eof()) {
    const size_t held = text.size();
    const std::streamsize ready = mStream.rdbuf()->in_avail();
    makeRoom(text, held + static_cast<size_t>(ready));
    mStream.rdbuf()->sgetn(&text[held], ready);
    // The kernel gives such a text in one piece. A read that leaves half of the buffer empty has had all of
    // it, and asking for the end as well would cost a system call more.
    if (mBuffer != nullptr && ready < kBufferBytes / 2) break;
  }
  if (mStream.fail()) text.clear();
  mStream.clear();
}

}  // namespace Torv::OS::Diagnostics
