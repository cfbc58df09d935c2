#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>

namespace Torv::OS::Diagnostics {

// A ring of the last `capacity` samples, in slots that are allocated once and overwritten in place.
// Not thread-safe: the owner locks.
template <typename T>
class CircularBuffer {
 public:
  // A buffer of capacity 0 accepts samples and holds none.
  explicit CircularBuffer(uint64_t capacity)
      : mCapacity(capacity), mSlots(std::make_unique<T[]>(std::max<uint64_t>(capacity, 1))) {}

  // Makes the next slot the newest sample and returns it for the caller to write. A full buffer loses its
  // oldest sample. The slot still holds what it held before (a default T in the first round), so a field that
  // the caller does not write keeps its old value, and a string its memory. The reference is valid as long as
  // the buffer.
  T& reserve() {
    T& slot = mSlots[mTail];
    if (mCapacity == 0) return slot;
    mTail = (mTail + 1) % mCapacity;
    if (mFull) {
      mHead = (mHead + 1) % mCapacity;
    } else if (mTail == mHead) {
      mFull = true;
    }
    return slot;
  }

  // Returns the number of samples held.
  uint64_t size() const { return mFull ? mCapacity : mTail - mHead; }

  // Copies the samples held to `out`, oldest first, and returns how many there were.
  template <typename OutputIterator>
  uint64_t readAll(OutputIterator out) const {
    if (!mFull) {
      std::copy(&mSlots[mHead], &mSlots[mTail], out);
      return mTail - mHead;
    }
    out = std::copy(&mSlots[mHead], mSlots.get() + mCapacity, out);
    std::copy(mSlots.get(), &mSlots[mTail], out);
    return mCapacity;
  }

 private:
  const uint64_t mCapacity;
  uint64_t mHead = 0;  // the oldest sample
  uint64_t mTail = 0;  // the next sample's slot; equals mHead if the buffer is empty or full
  bool mFull = false;
  const std::unique_ptr<T[]> mSlots;
};

}  // namespace Torv::OS::Diagnostics
