#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "storage/Limits.h"

namespace Torv::OS::Diagnostics {

// The keys of one State, each with its newest three values. All texts lie one behind the other in one block
// of memory, and a hash index finds a key in it. A process has many small texts: as objects of their own they
// would take twice the memory, and its size would depend on the allocator. Here bytes() is exact, so that the
// black box can bound the sum.
//
// Views that it returns are valid until the next change. Timestamps are nanoseconds of CLOCK_BOOTTIME. Not
// thread-safe.
class PackedHistories {
 public:
  static constexpr size_t kMaxValues = 3;

  struct Value {
    int64_t timestampNs = 0;
    std::string_view text;
  };

  // One key with its values, ordered by State::StateComparator: oldest first.
  struct History {
    std::string_view key;
    std::array<Value, kMaxValues> values;
    size_t size = 0;

    bool empty() const { return size == 0; }
    const Value& newest() const { return values[size - 1]; }  // undefined if empty()
    // Bytes of the key and the newest value in a reply; 0 if empty().
    size_t replyBytes() const { return empty() ? 0 : replyBytesOfState(key.size(), newest().text.size()); }
  };

  // Inserts a value at its place in time. If the key has three already, the oldest of the four is dropped.
  void add(std::string_view key, int64_t timestampNs, std::string_view value);

  // Returns the key's history, which is empty if the key is unknown.
  History find(std::string_view key) const;

  // Drops the key's values. The key stays known.
  void clear(std::string_view key);

  // Calls `visit(const History&)` for every known key.
  template <typename Visit>
  void forEach(Visit visit) const {
    forEachRecord([&](size_t at) { visit(historyAt(at)); });
  }

  // Drops keys, those whose newest value is oldest first, until bytes() is at most `maxBytes`. Returns how
  // many keys it has dropped.
  size_t keepNewest(size_t maxBytes);

  // Bytes of memory allocated for all of this.
  size_t bytes() const { return mBlock.capacity() + mCells.size() * sizeof(uint32_t); }
  // The sum of replyBytes() of all histories. It is kept up to date, so that a reply for thousands of
  // processes can be sized without reading their texts.
  size_t replyBytes() const { return mReplyBytes; }
  // Known keys, cleared ones included.
  size_t keyCount() const { return mKeys; }

 private:
  // A record is a Header, the key, and for each value a ValueHeader and its text. Records are not aligned.
  struct Header {
    uint32_t hash;
    uint32_t room : 29;  // bytes from this record to the next
    uint32_t count : 2;  // values
    uint32_t dropped : 1;
    uint32_t keyLength;
  };
  struct __attribute__((packed)) ValueHeader {
    int64_t timestampNs;
    uint32_t length;
  };

  static constexpr size_t kNone = SIZE_MAX;  // no record
  static constexpr uint32_t kFreeCell = 0;

  static size_t sizeOf(const Value* first, const Value* last);

  // Calls `visit(at)` for every record that is not dropped, in the order of their offsets.
  template <typename Visit>
  void forEachRecord(Visit visit) const {
    size_t room = 0;
    for (size_t at = 0; at < mBlock.size(); at += room) {
      const Header header = headerAt(at);
      room = header.room;
      if (!header.dropped) visit(at);
    }
  }

  Header headerAt(size_t at) const {
    Header header;
    memcpy(&header, mBlock.data() + at, sizeof(header));
    return header;
  }
  void setHeader(size_t at, const Header& header);
  History historyAt(size_t at) const;

  size_t findRecord(std::string_view key, uint32_t hash) const;
  size_t append(std::string_view key, uint32_t hash, size_t size, size_t old);
  void drop(size_t at);
  size_t tightRoom(size_t at) const;
  size_t repack(size_t extra, size_t watched);
  void rebuildIndex();
  // Returns the first cell with that content, probing from `hash` on. One must exist.
  uint32_t& cellOf(uint32_t hash, uint32_t content);

  std::vector<char> mBlock;
  std::vector<uint32_t> mCells;  // a power of two of them, probed one by one; a record's offset plus 1
  size_t mKeys = 0;
  size_t mReplyBytes = 0;
};

}  // namespace Torv::OS::Diagnostics
