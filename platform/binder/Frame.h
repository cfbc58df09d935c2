// The framing of transactions on a stream socket: a header of four words in the machine's byte order, then
// the bytes of a parcel.
//
// A connection belongs to one service, so a transaction names no target. Replies come in the order of the
// two-way transactions, so they carry no number. A one-way transaction has no reply.
#pragma once

#include "parcel/ParcelHeader.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include <sys/types.h>

#include <android-base/result.h>

#include "Limits.h"

namespace platform::binder {

using SteadyClock = std::chrono::steady_clock;
// Deadlines that have passed already, and that never pass.
inline constexpr SteadyClock::time_point kAtOnce{};
inline constexpr SteadyClock::time_point kForever = SteadyClock::time_point::max();

enum class FrameKind : uint32_t {
  Transaction = 0x31545842,  // "BXT1"
  Reply = 0x31505242,        // "BRP1"
};

struct FrameHeader {
  uint32_t kind = 0;   // a FrameKind
  uint32_t size = 0;   // bytes that follow, at most kMaxPayload
  uint32_t value = 0;  // Transaction: the code; Reply: the status_t
  uint32_t flags = 0;  // Transaction: IBinder's FLAG_*; Reply: 0
};
static_assert(sizeof(FrameHeader) == 16);

inline bool isOneWay(const FrameHeader& header) {
  return (header.flags & android::IBinder::FLAG_ONEWAY) != 0;
}

// Reads the frames of one kind from a blocking socket: await(), header(), payload(), and again. Does not own
// the socket. After an error the stream is of no further use. Not thread-safe.
class FrameReader {
 public:
  // A frame must be complete `patience` after its first byte. Without a value the reader waits for ever.
  FrameReader(int socket, FrameKind kind, std::optional<std::chrono::milliseconds> patience);

  // Waits for the first byte of a frame, however long that takes. Returns false if the stream has ended.
  bool await();

  // Reads the header of the frame. Errors: EPROTO if it is not a header of this kind or announces more than
  // kMaxPayload bytes, ECONNRESET if the stream ends, ETIMEDOUT. The messages are texts for "a client ...".
  android::base::Result<FrameHeader> header();

  // Reads the payload of `size` bytes, as the header announces them, into an empty parcel, and rewinds it.
  // Errors as for header().
  android::base::Result<void> payload(size_t size, android::Parcel* parcel);

  // Adds time in which the caller was not ready to read.
  void extendDeadline(SteadyClock::duration by);

 private:
  size_t held() const { return mEnd - mBegin; }
  android::base::Result<size_t> receive(uint8_t* to, size_t size);

  const int mSocket;
  const FrameKind mKind;
  const std::optional<std::chrono::milliseconds> mPatience;
  std::optional<SteadyClock::time_point> mDeadline;  // of the current frame, as soon as it has to wait
  // Bytes from mBegin to mEnd are received and not yet read.
  size_t mBegin = 0;
  size_t mEnd = 0;
  std::array<uint8_t, kSmallPayload> mBuffer;
};

// Sends a frame from byte *sent on; the header's bytes come first. Adds to *sent what the socket takes. If
// the socket is full, waits for room until the deadline. Errors: ETIMEDOUT, and EPIPE if the peer has closed;
// that gives no signal.
android::base::Result<void> sendFrame(int socket, const FrameHeader& header, const uint8_t* payload,
                                      size_t* sent, SteadyClock::time_point deadline);

// Waits until the socket has an event of poll(2), or has ended. Returns false if the deadline passes first.
bool waitFor(int socket, short event, SteadyClock::time_point deadline);

}  // namespace platform::binder
