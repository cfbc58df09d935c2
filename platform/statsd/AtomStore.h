#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

#include "Limits.h"

namespace libstatsd {

// An atom as a store keeps it and a fetch hands it over.
struct AtomRecord {
  int64_t elapsedTimestampNs = 0;  // CLOCK_BOOTTIME, as the publisher stamped it
  int32_t atomId = 0;
  std::string payload;  // the serialised atom message

  size_t bytes() const { return kAtomBytes + payload.size(); }
};

// The atoms kept for one configuration between two fetches. Not thread-safe.
class AtomStore {
 public:
  // `maxBytes` is for tests; see Limits.h.
  explicit AtomStore(size_t maxBytes = kMaxStoreBytes) : mMaxBytes(maxBytes) {}

  // Adds an atom of `sender`. If it does not fit, drops the oldest atom of the uid that holds most bytes,
  // until it does. Returns the sender of each dropped atom; in most cases that list is empty.
  std::vector<uid_t> add(uid_t sender, AtomRecord atom);

  // Removes and returns all atoms, in the order in which they were added.
  std::vector<AtomRecord> take();

  size_t count() const { return mCount; }
  // How many atoms of `sender` are kept.
  size_t countOf(uid_t sender) const;

 private:
  struct Entry {
    uint64_t sequence;  // counts all atoms added, so it gives the order between senders
    AtomRecord atom;
  };
  struct Queue {
    size_t bytes = 0;
    std::deque<Entry> entries;  // never empty
  };

  uid_t dropOldest();

  size_t mMaxBytes;
  size_t mBytes = 0;
  size_t mCount = 0;
  uint64_t mSequence = 0;
  std::map<uid_t, Queue> mQueues;
};

}  // namespace libstatsd
