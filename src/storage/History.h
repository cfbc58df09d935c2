#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "storage/KeyTable.h"
#include "storage/State.h"

namespace Torv::OS::Diagnostics {

// The newest three entries of one key. They stay where they are; what is kept sorted is their order, so that
// adding one moves no other.
class History {
 public:
  explicit History(KeyTable::Id key) : mKey(key) {}
  // Takes along only the entries that there are; most keys of a table that grows have one.
  History(History&& other) noexcept : mKey(other.mKey), mSize(other.mSize), mOrder(other.mOrder) {
    for (size_t i = 0; i < mSize; i++) mEntries[i] = std::move(other.mEntries[i]);
  }

  KeyTable::Id key() const { return mKey; }
  size_t size() const { return mSize; }
  bool empty() const { return mSize == 0; }
  // Oldest first; the index is below size().
  const State::Entry& operator[](size_t index) const { return mEntries[mOrder[index]]; }
  const State::Entry& newest() const { return (*this)[mSize - 1]; }  // not while empty()

  void add(int64_t timestamp, std::string&& value) {
    const State::Entry added{timestamp, {}};
    const auto end = mOrder.begin() + mSize;
    auto place =
        std::upper_bound(mOrder.begin(), end, added, [this](const State::Entry& entry, uint8_t held) {
          return State::StateComparator()(entry, mEntries[held]);
        });
    uint8_t slot = mSize;
    if (mSize < kMaxEntries) {
      std::move_backward(place, end, end + 1);
      ++mSize;
    } else {
      // The oldest of the four goes: the new one itself where it would come first.
      if (place == mOrder.begin()) return;
      slot = mOrder[0];
      std::move(mOrder.begin() + 1, place, mOrder.begin());
      --place;
    }
    *place = slot;
    mEntries[slot].timestamp = timestamp;
    mEntries[slot].value.swap(value);  // the evicted value's memory goes with the argument
  }

  void clear() {
    mSize = 0;
    for (State::Entry& entry : mEntries) entry = {};
  }

 private:
  static constexpr uint8_t kMaxEntries = 3;

  KeyTable::Id mKey;
  uint8_t mSize = 0;
  std::array<uint8_t, kMaxEntries> mOrder{};  // places in mEntries, oldest first; mSize of them count
  std::array<State::Entry, kMaxEntries> mEntries;
};

}  // namespace Torv::OS::Diagnostics
