#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "storage/KeyTable.h"

namespace Torv::OS::Diagnostics {

// Where in its table a State keeps each key: an open-addressed hash table of two numbers a cell, which for
// the keys of a usual process is a few cache lines. Nothing is ever taken out.
class SlotIndex {
 public:
  std::optional<uint32_t> find(KeyTable::Id key) const {
    if (mCells.empty()) return std::nullopt;
    const Cell& cell = mCells[place(key)];
    if (cell.slot == kFree) return std::nullopt;
    return cell.slot;
  }

  // `key` must not be in yet.
  void insert(KeyTable::Id key, uint32_t slot) {
    if ((mCount + 1) * 4 > mCells.size() * 3) grow();
    mCells[place(key)] = {key, slot};
    ++mCount;
  }

 private:
  static constexpr uint32_t kFree = UINT32_MAX;
  struct Cell {
    KeyTable::Id key = 0;
    uint32_t slot = kFree;
  };

  // The cell that holds `key`, or the free one where it would go.
  size_t place(KeyTable::Id key) const {
    size_t i = key * UINT32_C(0x9E3779B1) >> mShift;  // the product's top bits spread numbers given in turn
    while (mCells[i].slot != kFree && mCells[i].key != key) i = (i + 1) & (mCells.size() - 1);
    return i;
  }

  void grow() {
    const size_t size = mCells.empty() ? 16 : mCells.size() * 2;
    mShift = mCells.empty() ? 28 : mShift - 1;
    const std::vector<Cell> old = std::exchange(mCells, std::vector<Cell>(size));
    for (const Cell& cell : old) {
      if (cell.slot != kFree) mCells[place(cell.key)] = cell;
    }
  }

  std::vector<Cell> mCells;  // a power of two of them, at most three quarters taken
  size_t mCount = 0;
  uint32_t mShift = 0;  // 32 less the power
};

}  // namespace Torv::OS::Diagnostics
