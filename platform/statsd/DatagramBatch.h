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

  // Receives what the socket holds, at most kMax datagrams, and does not wait. Returns how many, or nullopt
  // with errno set if the socket fails.
  [[nodiscard]] std::optional<size_t> receive(int socket);

  // About datagram `i` of the last receive(). The texts are valid until the next one.
  std::string_view bytes(size_t i) const;
  bool isCut(size_t i) const;  // it was longer than any event
  uid_t sender(size_t i);      // as the kernel says; 65534 (nobody) if it does not

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
