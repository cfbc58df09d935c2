#include "Frame.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace platform::binder {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

FrameReader::FrameReader(int socket, FrameKind kind, std::optional<std::chrono::milliseconds> patience)
    : mSocket(socket), mKind(kind), mPatience(patience) {}

bool FrameReader::await() {
  mDeadline.reset();
  if (held() > 0) return true;
  const ssize_t size = TEMP_FAILURE_RETRY(recv(mSocket, mBuffer.data(), mBuffer.size(), 0));
  mBegin = 0;
  mEnd = static_cast<size_t>(std::max<ssize_t>(size, 0));
  return size > 0;
}

Result<FrameHeader> FrameReader::header() {
  if (mBegin + sizeof(FrameHeader) > mBuffer.size()) {
    memmove(mBuffer.data(), mBuffer.data() + mBegin, held());
    mEnd = held();
    mBegin = 0;
  }
  while (held() < sizeof(FrameHeader)) {
    auto size = receive(mBuffer.data() + mEnd, mBuffer.size() - mEnd);
    if (!size.ok()) return size.error();
    mEnd += *size;
  }
  FrameHeader header;
  memcpy(&header, mBuffer.data() + mBegin, sizeof(header));
  mBegin += sizeof(header);
  if (header.kind != static_cast<uint32_t>(mKind)) {
    return Error(EPROTO) << "sent a frame that does not begin as one";
  }
  if (header.size > kMaxPayload) return Error(EPROTO) << "sent a frame over the limit of a transaction";
  return header;
}

Result<void> FrameReader::payload(size_t size, android::Parcel* parcel) {
  if (size == 0) return {};
  auto* const target = static_cast<uint8_t*>(parcel->writeInplace(size));
  if (target == nullptr) return Error(ENOMEM) << "sent more than there is memory for";
  size_t got = std::min(size, held());
  memcpy(target, mBuffer.data() + mBegin, got);
  mBegin += got;
  while (got < size) {
    auto part = receive(target + got, size - got);
    if (!part.ok()) return part.error();
    got += *part;
  }
  parcel->setDataSize(size);
  parcel->setDataPosition(0);
  return {};
}

void FrameReader::extendDeadline(SteadyClock::duration by) {
  if (mDeadline) *mDeadline += by;
}

// Receives between one and `size` bytes.
Result<size_t> FrameReader::receive(uint8_t* to, size_t size) {
  for (;;) {
    const int flags = mPatience ? MSG_DONTWAIT : 0;
    const ssize_t got = TEMP_FAILURE_RETRY(recv(mSocket, to, size, flags));
    if (got > 0) return static_cast<size_t>(got);
    if (got == 0) return Error(ECONNRESET) << "closed in the middle of a frame";
    if (errno != EAGAIN) return ErrnoError() << "is lost";
    if (!mDeadline) mDeadline = SteadyClock::now() + *mPatience;
    if (!waitFor(mSocket, POLLIN, *mDeadline)) return Error(ETIMEDOUT) << "stalled in the middle of a frame";
  }
}

Result<void> sendFrame(int socket, const FrameHeader& header, const uint8_t* payload, size_t* sent,
                       SteadyClock::time_point deadline) {
  auto* const first = reinterpret_cast<uint8_t*>(const_cast<FrameHeader*>(&header));
  auto* const second = const_cast<uint8_t*>(payload);
  for (;;) {
    const size_t ofFirst = std::min(*sent, sizeof(header));
    const size_t ofSecond = *sent - ofFirst;
    iovec parts[] = {{first + ofFirst, sizeof(header) - ofFirst},
                     {second + ofSecond, header.size - ofSecond}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = std::size(parts);
    const ssize_t taken = TEMP_FAILURE_RETRY(sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL));
    if (taken < 0 && errno != EAGAIN) return ErrnoError() << "is lost";
    if (taken > 0) *sent += static_cast<size_t>(taken);
    if (*sent == sizeof(header) + header.size) return {};
    if (!waitFor(socket, POLLOUT, deadline)) return Error(ETIMEDOUT) << "does not read";
  }
}

bool waitFor(int socket, short event, SteadyClock::time_point deadline) {
  using std::chrono::milliseconds;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - SteadyClock::now()).count();
    pollfd waiting{socket, event, 0};
    const int ready =
        poll(&waiting, 1, deadline == kForever ? -1 : static_cast<int>(std::max<long>(left, 0)));
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
    if (ready == 0) return false;
  }
}

}  // namespace platform::binder
