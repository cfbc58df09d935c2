#include "TextSource.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <android/log.h>
#include <unistd.h>

#include "base/Files.h"
#include "os/DevicePath.h"

namespace Torv::OS::Diagnostics {
namespace {

// Room for a text of `length` characters whose counters have grown a digit or two.
size_t withSpare(size_t length) {
  return length + length / 4 + 32;
}

}  // namespace

std::optional<TextSource> TextSource::open(const std::string& path) {
  auto file = Base::openForReading(devicePath(path));
  if (!file.ok()) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to open %s", path.c_str());
    return std::nullopt;
  }
  return TextSource(std::move(*file));
}

TextSource::TextSource(std::ifstream stream) : mStream(std::move(stream)) {}

TextSource::TextSource(android::base::unique_fd file) : mFile(std::move(file)) {}

bool TextSource::readInto(std::string& text) {
  const bool isRead = mFile.ok() ? readFile(text) : readStream(text);
  if (!isRead) std::string().swap(text);
  return isRead;
}

// The kernel delivers such a text with one read if there is room for all of it. If the text fills the room,
// there may be more. It is then read again from the start: a second read would continue with a text of a
// later moment.
bool TextSource::readFile(std::string& text) {
  if (text.capacity() <= mLength) text.reserve(withSpare(mLength));
  text.resize(std::min(text.capacity(), kMaxTextBytes + 1));
  ssize_t length = 0;
  while (true) {
    length = TEMP_FAILURE_RETRY(pread(mFile.get(), text.data(), text.size(), 0));
    if (length < static_cast<ssize_t>(text.size())) break;
    if (text.size() > kMaxTextBytes) return false;
    text.resize(std::min(2 * text.size(), kMaxTextBytes + 1));
  }
  if (length < 0) return false;
  text.resize(static_cast<size_t>(length));
  mLength = text.size();
  return true;
}

bool TextSource::readStream(std::string& text) {
  text.clear();
  mStream.clear();
  mStream.seekg(0);
  // peek() fills the stream's buffer and turns a failed read into a state bit; sgetn() would throw. So
  // sgetn() is asked only for what the buffer holds.
  while (text.size() <= kMaxTextBytes && mStream.peek() != std::ifstream::traits_type::eof()) {
    const size_t held = text.size();
    const std::streamsize ready = mStream.rdbuf()->in_avail();
    text.resize(held + static_cast<size_t>(ready));
    mStream.rdbuf()->sgetn(&text[held], ready);
  }
  const bool isRead = !mStream.fail() && text.size() <= kMaxTextBytes;
  mStream.clear();
  return isRead;
}

}  // namespace Torv::OS::Diagnostics
