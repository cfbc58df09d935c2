#include "Frame.h"

#include <algorithm>
#include <cstring>

namespace platform::binder {
namespace {

// Memory that a reader keeps between frames.
constexpr size_t kKeptCapacity = 4096;

Frame frameAt(const uint8_t* data) {
  Frame frame;
  memcpy(&frame.header, data, sizeof(FrameHeader));
  frame.payload = data + sizeof(FrameHeader);
  return frame;
}

}  // namespace

const char* faultOf(const FrameHeader& header, FrameKind kind) {
  if (header.kind != static_cast<uint32_t>(kind)) return "a frame that does not begin as one";
  if (header.size > kMaxPayload) return "a frame over the limit of a transaction";
  return nullptr;
}

void FrameReader::feed(const uint8_t* data, size_t size) {
  mFed = data;
  mFedSize = size;
}

FrameReader::Result FrameReader::next(Frame* frame) {
  if (mFault != nullptr) return Result::Malformed;
  return heldSize() == 0 ? nextOfFed(frame) : nextOfHeld(frame);
}

void FrameReader::keep() {
  if (mFedSize == 0) return;
  if (heldSize() == 0) {
    mHeld.clear();
    mOffset = 0;
  }
  mHeld.insert(mHeld.end(), mFed, mFed + mFedSize);
  mFedSize = 0;
}

size_t FrameReader::sizeOfFrame(const uint8_t* data, size_t size) {
  if (size < sizeof(FrameHeader)) return sizeof(FrameHeader);
  const Frame frame = frameAt(data);
  mFault = faultOf(frame.header, mKind);
  return mFault != nullptr ? 0 : sizeof(FrameHeader) + frame.header.size;
}

FrameReader::Result FrameReader::nextOfFed(Frame* frame) {
  mOffset = 0;
  mHeld.clear();
  if (mHeld.capacity() > kKeptCapacity) mHeld.shrink_to_fit();
  const size_t size = sizeOfFrame(mFed, mFedSize);
  if (size == 0) return Result::Malformed;
  if (mFedSize < size) return Result::NeedMore;
  *frame = frameAt(mFed);
  mFed += size;
  mFedSize -= size;
  return Result::Frame;
}

FrameReader::Result FrameReader::nextOfHeld(Frame* frame) {
  mHeld.erase(mHeld.begin(), mHeld.begin() + static_cast<std::ptrdiff_t>(mOffset));
  mOffset = 0;
  for (;;) {
    const size_t size = sizeOfFrame(mHeld.data(), mHeld.size());
    if (size == 0) return Result::Malformed;
    if (mHeld.size() >= size && mHeld.size() >= sizeof(FrameHeader)) {
      *frame = frameAt(mHeld.data());
      mOffset = size;
      return Result::Frame;
    }
    if (mFedSize == 0) return Result::NeedMore;
    const size_t taken = std::min(size - mHeld.size(), mFedSize);
    mHeld.insert(mHeld.end(), mFed, mFed + taken);
    mFed += taken;
    mFedSize -= taken;
  }
}

}  // namespace platform::binder
