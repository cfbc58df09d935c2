#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>

namespace Torv::OS::Diagnostics {

// The last `capacity` samples of something, in slots that are allocated once and written in place.
// Not thread-safe: its owner locks.
template <typename T>
class CircularBuffer {
 public:
  // A buffer of capacity 0 takes writes and holds nothing.
  explicit CircularBuffer(uint64_t capacity)
      : mCapacity(capacity), mSlots(std::make_unique<T[]>(std::max<uint64_t>(capacity, 1))) {}

  // Makes the next sample's slot the newest one held and returns it for the caller to write. The slot still
  // holds what the sample that it replaces left there (zeroes, before the first round is over), so a field
  // that is not written keeps its old value and a string its capacity.
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

  uint64_t size() const { return mFull ? mCapacity : mTail - mHead; }

  // Copies the samples held to `out`, oldest first; returns how many.
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
  uint64_t mTail = 0;  // the slot of the next one; equals mHead where empty or full
  bool mFull = false;
  const std::unique_ptr<T[]> mSlots;
};

}  // namespace Torv::OS::Diagnostics
