#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace libstatsd {

// What a configuration may hold, as on the device; counted in encoded bytes.
constexpr size_t kMaxStoreBytes = size_t{2} << 20;

// The atoms kept for one configuration, in the order in which they came, already in the form in which a
// report carries them: the `data` entries of EventMetricDataWrapper, one after the other. Not thread-safe.
class AtomStore {
 public:
  explicit AtomStore(size_t maxBytes = kMaxStoreBytes) : mMaxBytes(maxBytes) {}

  // Appends an atom whose serialised message is `fields`. Where it does not fit, the oldest go; returns how
  // many went.
  size_t append(int64_t elapsedTimestampNs, int32_t atomId, std::string_view fields);

  size_t count() const { return mCount; }
  size_t bytes() const { return mBytes; }

  // Appends all entries to `out`.
  void appendTo(std::string& out) const;

 private:
  void dropOldest();

  size_t mMaxBytes;
  size_t mBytes = 0;
  size_t mCount = 0;
  std::deque<std::string> mChunks;  // whole entries each
  size_t mHead = 0;                 // what of the first chunk has been dropped already
};

}  // namespace libstatsd
