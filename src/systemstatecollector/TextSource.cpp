#include "TextSource.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include "os/DevicePath.h"

namespace Torv::OS::Diagnostics {
namespace {

// Room for a text of `length` characters and for its counters to grow a digit or two.
size_t withSpare(size_t length) {
  return length + length / 4 + 32;
}

}  // namespace

std::optional<TextSource> TextSource::open(const std::string& path) {
  android::base::unique_fd file(TEMP_FAILURE_RETRY(::open(devicePath(path).c_str(), O_RDONLY | O_CLOEXEC)));
  if (!file.ok()) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to open %s", path.c_str());
    return std::nullopt;
  }
  return TextSource(std::move(file));
}

TextSource::TextSource(std::ifstream stream) : mStream(std::move(stream)) {}

TextSource::TextSource(android::base::unique_fd file) : mFile(std::move(file)) {}

void TextSource::readInto(std::string& text) {
  if (mFile.ok()) {
    readFile(text);
  } else {
    readStream(text);
  }
}

// The kernel gives such a text in one piece where there is room for it. One that fills the room may have
// more, and is read again from its start rather than continued: its second half would be of a later moment.
void TextSource::readFile(std::string& text) {
  if (text.capacity() <= mLength) text.reserve(withSpare(mLength));
  text.resize(text.capacity());
  ssize_t length = 0;
  while (true) {
    length = TEMP_FAILURE_RETRY(pread(mFile.get(), text.data(), text.size(), 0));
    if (length < static_cast<ssize_t>(text.size())) break;
    text.resize(2 * text.size());
  }
  text.resize(static_cast<size_t>(std::max(length, ssize_t{0})));
  mLength = text.size();
}

void TextSource::readStream(std::string& text) {
  text.clear();
  mStream.clear();
  mStream.seekg(0);
  // peek() fills the buffer and keeps a failed read to a state bit, where sgetn() would throw it; so sgetn()
  // is asked only for what the buffer holds.
  while (mStream.peek() != std::ifstream::traits_type::eof()) {
    const size_t held = text.size();
    const std::streamsize ready = mStream.rdbuf()->in_avail();
    text.resize(held + static_cast<size_t>(ready));
    mStream.rdbuf()->sgetn(&text[held], ready);
  }
  if (mStream.fail()) text.clear();
  mStream.clear();
}

}  // namespace Torv::OS::Diagnostics
