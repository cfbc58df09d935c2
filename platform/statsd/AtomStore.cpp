#include "AtomStore.h"

#include "ProtoAppend.h"

namespace libstatsd {
namespace {

constexpr size_t kChunkBytes = size_t{16} << 10;

// EventMetricDataWrapper.data; EventMetricData.elapsed_timestamp_nanos and .atom.
constexpr int32_t kDataField = 1;
constexpr int32_t kTimestampField = 1;
constexpr int32_t kAtomField = 2;

size_t entryBytes(std::string_view entries) {
  size_t length = 0;
  size_t at = 1;  // behind the one-byte tag
  for (unsigned shift = 0;; shift += 7) {
    const auto byte = static_cast<uint8_t>(entries[at++]);
    length |= static_cast<size_t>(byte & 0x7f) << shift;
    if (byte < 0x80) return at + length;
  }
}

// Tag of one byte, length, contents.
size_t wrappedBytes(size_t contents) {
  return 1 + varintBytes(contents) + contents;
}

}  // namespace

size_t AtomStore::append(int64_t elapsedTimestampNs, int32_t atomId, std::string_view fields) {
  // An atom without fields is an empty message, which statsd's writer leaves out.
  const size_t fieldBytes = fields.empty() ? 0
                                           : varintBytes(protoTag(atomId, WireType::LengthDelimited)) +
                                                 varintBytes(fields.size()) + fields.size();
  const size_t dataBytes = 1 + varintBytes(static_cast<uint64_t>(elapsedTimestampNs)) +
                           (fields.empty() ? 0 : wrappedBytes(fieldBytes));
  const size_t entry = wrappedBytes(dataBytes);
  size_t dropped = 0;
  for (; mCount != 0 && mBytes + entry > mMaxBytes; dropped++) dropOldest();

  if (mChunks.empty() || mChunks.back().size() + entry > kChunkBytes) mChunks.emplace_back();
  std::string& chunk = mChunks.back();
  appendLength(chunk, kDataField, dataBytes);
  appendInt64(chunk, kTimestampField, elapsedTimestampNs);
  if (!fields.empty()) {
    appendLength(chunk, kAtomField, fieldBytes);
    appendBytes(chunk, atomId, fields);
  }
  mBytes += entry;
  mCount++;
  return dropped;
}

void AtomStore::dropOldest() {
  const size_t size = entryBytes(std::string_view(mChunks.front()).substr(mHead));
  mHead += size;
  mBytes -= size;
  mCount--;
  if (mHead < mChunks.front().size()) return;
  mChunks.pop_front();
  mHead = 0;
}

void AtomStore::appendTo(std::string& out) const {
  size_t start = mHead;
  for (const std::string& chunk : mChunks) {
    out.append(chunk, start);
    start = 0;
  }
}

}  // namespace libstatsd
