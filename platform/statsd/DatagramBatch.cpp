#include "DatagramBatch.h"

#include <cerrno>
#include <cstring>

namespace libstatsd {

DatagramBatch::DatagramBatch() {
  for (size_t i = 0; i < kMax; i++) {
    mVectors[i] = {mSlots[i].bytes.data(), mSlots[i].bytes.size()};
    msghdr& header = mMessages[i].msg_hdr;
    header = {};
    header.msg_iov = &mVectors[i];
    header.msg_iovlen = 1;
    header.msg_control = mSlots[i].control.data();
    header.msg_controllen = mSlots[i].control.size();
  }
}

std::optional<size_t> DatagramBatch::receive(int socket) {
  // The kernel has written the lengths that it used.
  for (size_t i = 0; i < mReceived; i++) mMessages[i].msg_hdr.msg_controllen = mSlots[i].control.size();
  const int received = recvmmsg(socket, mMessages.data(), kMax, MSG_DONTWAIT, nullptr);
  mReceived = received > 0 ? static_cast<size_t>(received) : 0;
  if (received >= 0 || errno == EAGAIN || errno == EINTR) return mReceived;
  return std::nullopt;
}

std::string_view DatagramBatch::bytes(size_t i) const {
  return {mSlots[i].bytes.data(), mMessages[i].msg_len};
}

bool DatagramBatch::isCut(size_t i) const {
  return (mMessages[i].msg_hdr.msg_flags & MSG_TRUNC) != 0;
}

uid_t DatagramBatch::sender(size_t i) {
  constexpr uid_t kUnknown = 65534;
  msghdr& message = mMessages[i].msg_hdr;
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_CREDENTIALS) continue;
    ucred credentials{};
    memcpy(&credentials, CMSG_DATA(header), sizeof(credentials));
    return credentials.uid;
  }
  return kUnknown;
}

}  // namespace libstatsd
