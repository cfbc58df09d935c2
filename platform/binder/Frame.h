// The framing of transactions on a stream: a header of four words in the machine's byte order, then the bytes
// of a parcel. Nothing here knows of sockets.
//
// A connection belongs to one service, so a transaction names no target; replies come in the order of the
// two-way transactions, so none carries a number; a one-way transaction has no reply.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace platform::binder {

// The device's receive buffer of 1 MiB less two pages, which a transaction or reply must fit.
inline constexpr size_t kMaxPayload = 1024 * 1024 - 8 * 1024;

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

// What is wrong with a header where a frame of `kind` is expected, or nullptr.
const char* faultOf(const FrameHeader& header, FrameKind kind);

struct Frame {
  FrameHeader header;
  const uint8_t* payload = nullptr;  // header.size bytes
};

// Cuts a stream into frames. It holds a part of a frame in memory of its own, which grows with the bytes that
// came and not with the size that was announced. Not thread-safe.
class FrameReader {
 public:
  enum class Result { Frame, NeedMore, Malformed };

  explicit FrameReader(FrameKind kind) : mKind(kind) {}

  // Hands over the next bytes of the stream. They are read in place: they must stay until next() has asked
  // for more, or until keep().
  void feed(const uint8_t* data, size_t size);

  // The next frame, whose payload is valid until the next call of a method. After Malformed the stream is of
  // no further use; fault() says why.
  Result next(Frame* frame);

  // Copies what is left of the bytes handed over, so that their memory may be used again.
  void keep();

  bool inFrame() const { return mOffset < mHeld.size() || mFedSize != 0; }
  size_t heldSize() const { return mHeld.size() - mOffset; }
  const char* fault() const { return mFault; }

 private:
  // How many bytes the frame at `data` takes as far as `size` bytes of it tell; 0 where it is malformed.
  size_t sizeOfFrame(const uint8_t* data, size_t size);
  Result nextOfHeld(Frame* frame);
  Result nextOfFed(Frame* frame);

  const FrameKind mKind;
  std::vector<uint8_t> mHeld;  // from mOffset on: bytes before the fed ones
  size_t mOffset = 0;
  const uint8_t* mFed = nullptr;
  size_t mFedSize = 0;
  const char* mFault = nullptr;
};

}  // namespace platform::binder
