#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include <sys/socket.h>
#include <sys/types.h>

#include "StatsEventFormat.h"

namespace libstatsd {

// Room for what one recvmmsg(2) takes from the atom socket. A page of it is touched only when a datagram lies
// there. Not thread-safe.
class DatagramBatch {
 public:
  static constexpr size_t kMax = 32;

  DatagramBatch();

  // Takes what the socket holds, up to kMax, and does not wait. How many, or nothing, with errno set, where
  // the socket fails.
  [[nodiscard]] std::optional<size_t> receive(int socket);

  // Of a datagram received last.
  std::string_view bytes(size_t i) const;
  bool isCut(size_t i) const;  // it was longer than any event
  uid_t sender(size_t i);      // as the kernel vouches for it; 65534 where it does not

 private:
  struct Slot {
    std::array<char, kMaxDatagramBytes> bytes;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control;
  };

  std::array<Slot, kMax> mSlots;
  std::array<iovec, kMax> mVectors;
  std::array<mmsghdr, kMax> mMessages;
  size_t mReceived = 0;  // last time
};

}  // namespace libstatsd
