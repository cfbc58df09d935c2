#include "PackedHistories.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "storage/State.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr size_t kRoomStep = 8;     // lets a text grow by a few bytes without moving its record
constexpr size_t kSpareShare = 16;  // a sixteenth of the block is spare: it counts as memory too
constexpr size_t kMinCells = 16;

// Equal sizes let one process reuse the block that another has outgrown. With steps of 1 KiB, 2,048 processes
// that grow side by side to 8 KiB of texts take 43 MiB of the heap; with 512 bytes they take 48 MiB, and a
// fetch is a tenth slower.
constexpr size_t kCapacityStep = 1024;

uint32_t hashOf(std::string_view key) {
  return static_cast<uint32_t>(std::hash<std::string_view>()(key));
}

size_t roomFor(size_t size) {
  return (size + kRoomStep - 1) / kRoomStep * kRoomStep;
}

size_t capacityFor(size_t used) {
  const size_t wanted = used + used / kSpareShare;
  return (wanted + kCapacityStep - 1) / kCapacityStep * kCapacityStep;
}

// At most three quarters of the cells are in use, because probing gets long beyond that.
size_t cellsFor(size_t keys) {
  size_t cells = kMinCells;
  while (keys * 4 > cells * 3) cells *= 2;
  return cells;
}

}  // namespace

void PackedHistories::add(std::string_view key, int64_t timestampNs, std::string_view value) {
  const uint32_t hash = hashOf(key);
  size_t at = findRecord(key, hash);
  if (at == kNone)
    at = append(key, hash, sizeof(Header) + key.size() + sizeof(ValueHeader) + value.size(), kNone);

  const History history = historyAt(at);
  const auto values = history.values.begin();
  const auto place =
      std::upper_bound(values, values + history.size, timestampNs,
                       [](int64_t a, const Value& b) { return State::StateComparator()(a, b.timestampNs); });
  const bool full = history.size == kMaxValues;
  if (full && place == values) return;  // the value would be the oldest of four

  // The record is [begin: values before the place][middle: values behind it][end]. If it is full, the oldest
  // value makes room at `begin`.
  const size_t begin = sizeof(Header) + key.size();
  const size_t middle = begin + sizeOf(values, place);
  const size_t end = middle + sizeOf(place, values + history.size);
  const size_t removed = full ? sizeOf(values, values + 1) : 0;
  const size_t added = sizeof(ValueHeader) + value.size();
  const size_t target = middle - removed;

  if (place == values + history.size) {  // the value becomes the newest
    mReplyBytes -= history.replyBytes();
    mReplyBytes += replyBytesOfState(key.size(), value.size());
  }
  if (end - removed + added > headerAt(at).room) at = append(key, hash, end - removed + added, at);
  char* const record = mBlock.data() + at;
  memmove(record + begin, record + begin + removed, target - begin);
  memmove(record + target + added, record + middle, end - middle);
  const ValueHeader valueHeader{timestampNs, static_cast<uint32_t>(value.size())};
  memcpy(record + target, &valueHeader, sizeof(valueHeader));
  memcpy(record + target + sizeof(valueHeader), value.data(), value.size());
  Header header = headerAt(at);
  if (!full) ++header.count;
  setHeader(at, header);
}

PackedHistories::History PackedHistories::find(std::string_view key) const {
  const size_t at = findRecord(key, hashOf(key));
  return at == kNone ? History{} : historyAt(at);
}

void PackedHistories::clear(std::string_view key) {
  const size_t at = findRecord(key, hashOf(key));
  if (at == kNone) return;
  mReplyBytes -= historyAt(at).replyBytes();
  Header header = headerAt(at);
  header.count = 0;
  setHeader(at, header);
}

size_t PackedHistories::keepNewest(size_t maxBytes) {
  std::vector<std::pair<int64_t, size_t>> candidates;  // the newest value's time, and the record's offset
  candidates.reserve(mKeys);
  forEachRecord([&](size_t at) {
    const History history = historyAt(at);
    candidates.emplace_back(history.empty() ? INT64_MIN : history.newest().timestampNs, at);
  });
  std::sort(candidates.begin(), candidates.end(), std::greater<>());

  size_t kept = 0;
  size_t used = 0;
  for (; kept < candidates.size(); ++kept) {
    const size_t with = used + tightRoom(candidates[kept].second);
    if (capacityFor(with) + cellsFor(kept + 1) * sizeof(uint32_t) > maxBytes) break;
    used = with;
  }
  for (size_t i = kept; i < candidates.size(); ++i) {
    const size_t at = candidates[i].second;
    mReplyBytes -= historyAt(at).replyBytes();
    drop(at);
  }
  mKeys = kept;
  mCells.assign(cellsFor(kept), 0);
  mCells.shrink_to_fit();
  repack(0, kNone);
  return candidates.size() - kept;
}

void PackedHistories::setHeader(size_t at, const Header& header) {
  memcpy(mBlock.data() + at, &header, sizeof(header));
}

PackedHistories::History PackedHistories::historyAt(size_t at) const {
  const Header header = headerAt(at);
  const char* text = mBlock.data() + at + sizeof(header);
  History history;
  history.key = {text, header.keyLength};
  text += header.keyLength;
  for (; history.size < header.count; ++history.size) {
    ValueHeader valueHeader;
    memcpy(&valueHeader, text, sizeof(valueHeader));
    text += sizeof(valueHeader);
    history.values[history.size] = {valueHeader.timestampNs, {text, valueHeader.length}};
    text += valueHeader.length;
  }
  return history;
}

size_t PackedHistories::sizeOf(const Value* first, const Value* last) {
  size_t size = 0;
  for (; first != last; ++first) size += sizeof(ValueHeader) + first->text.size();
  return size;
}

size_t PackedHistories::findRecord(std::string_view key, uint32_t hash) const {
  if (mCells.empty()) return kNone;
  for (size_t cell = hash;; ++cell) {
    const uint32_t content = mCells[cell & (mCells.size() - 1)];
    if (content == kFreeCell) return kNone;
    const size_t at = content - 1;
    const Header header = headerAt(at);
    if (header.hash != hash || header.keyLength != key.size()) continue;
    if (memcmp(mBlock.data() + at + sizeof(header), key.data(), key.size()) == 0) return at;
  }
}

// Puts a record of `size` bytes at the end: a new one with that key, or a copy of the record at `old`, which
// it replaces. Returns its offset.
size_t PackedHistories::append(std::string_view key, uint32_t hash, size_t size, size_t old) {
  const size_t room = roomFor(size);
  if (mBlock.size() + room > mBlock.capacity()) old = repack(room, old);
  const size_t at = mBlock.size();
  mBlock.resize(at + room);
  Header header{hash, 0, 0, 0, static_cast<uint32_t>(key.size())};
  if (old == kNone) {
    memcpy(mBlock.data() + at + sizeof(Header), key.data(), key.size());
    ++mKeys;
  } else {
    header = headerAt(old);
    memcpy(mBlock.data() + at, mBlock.data() + old, header.room);
    drop(old);
  }
  header.room = static_cast<uint32_t>(room);
  setHeader(at, header);
  if (cellsFor(mKeys) > mCells.size()) {
    mCells.resize(cellsFor(mKeys));
    rebuildIndex();
  } else {
    cellOf(hash, old == kNone ? kFreeCell : static_cast<uint32_t>(old + 1)) = static_cast<uint32_t>(at + 1);
  }
  return at;
}

void PackedHistories::drop(size_t at) {
  Header header = headerAt(at);
  header.dropped = 1;
  setHeader(at, header);
}

// The room that the record needs for what it holds now.
size_t PackedHistories::tightRoom(size_t at) const {
  const History history = historyAt(at);
  const auto values = history.values.begin();
  return roomFor(sizeof(Header) + history.key.size() + sizeOf(values, values + history.size));
}

// Copies the records that are not dropped, without the room that they do not need, into a new block with
// `extra` free bytes and some to spare. Returns the new offset of the record at `watched`, or kNone if there
// is none.
size_t PackedHistories::repack(size_t extra, size_t watched) {
  size_t used = extra;
  forEachRecord([&](size_t at) { used += tightRoom(at); });
  std::vector<char> block;
  block.reserve(capacityFor(used));
  size_t moved = kNone;
  forEachRecord([&](size_t at) {
    if (at == watched) moved = block.size();
    Header header = headerAt(at);
    header.room = static_cast<uint32_t>(tightRoom(at));
    const size_t target = block.size();
    block.insert(block.end(), mBlock.data() + at, mBlock.data() + at + header.room);
    memcpy(block.data() + target, &header, sizeof(header));
  });
  mBlock.swap(block);
  rebuildIndex();
  return moved;
}

void PackedHistories::rebuildIndex() {
  std::fill(mCells.begin(), mCells.end(), kFreeCell);
  forEachRecord([&](size_t at) { cellOf(headerAt(at).hash, kFreeCell) = static_cast<uint32_t>(at + 1); });
}

uint32_t& PackedHistories::cellOf(uint32_t hash, uint32_t content) {
  size_t cell = hash;
  while (mCells[cell & (mCells.size() - 1)] != content) ++cell;
  return mCells[cell & (mCells.size() - 1)];
}

}  // namespace Torv::OS::Diagnostics
