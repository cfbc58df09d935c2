#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/StringMap.h"

namespace Torv::OS::Diagnostics {

class PackedHistories;

// One table of named application states: for each key its newest three values, ordered by time. A process has
// one, and so has a global namespace.
//
// Not thread-safe: the owner of the object holds a lock around every call.
class State {
 public:
  struct Entry {
    int64_t timestamp = 0;  // nanoseconds of CLOCK_BOOTTIME
    std::string value;
  };

  // Orders values by time, ascending, and is not strict on purpose: no two values count as equal, so all are
  // kept, and a value goes before those of the same time that were added earlier. Because of that it is no
  // strict weak order: never give it to std::set or std::sort.
  struct StateComparator {
    bool operator()(const Entry& a, const Entry& b) const { return (*this)(a.timestamp, b.timestamp); }
    bool operator()(int64_t aTimestamp, int64_t bTimestamp) const { return aTimestamp <= bTimestamp; }
  };

  State();
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // Adds a value of `key` at its place in time. If the key has three already, the oldest of the four is
  // dropped, which can be the new one. `timestamp` is in nanoseconds of CLOCK_BOOTTIME.
  void add(const std::string& key, int64_t timestamp, const std::string& value);

  // Returns the newest value of `key`; of several with the same time the one that was added first. Returns
  // nullopt if the key is unknown or cleared. With age, the value comes as {"dt_ms":<age in ms>,"v":<value>},
  // and nullopt also stands for a value whose time is in the future.
  std::optional<std::string> get(const std::string& key, bool withAge) const;

  // Returns get() of every key that holds a value. A value whose time is in the future becomes "".
  Base::StringMap getAll(bool withAge) const;

  // Drops the values of `key` if the newest of them is newer than `timestamp`. The key stays known.
  void dropIfNewer(const std::string& key, int64_t timestamp);

  // Returns how many bytes the newest values and their keys take in a reply (see kReplyBytesPerState). Reads
  // one number, however many keys there are.
  size_t replyBytes() const;

  // Returns getAll(false) without the keys that do not fit into `maxReplyBytes`: those whose newest value is
  // oldest are left out first.
  Base::StringMap getNewest(size_t maxReplyBytes) const;

  // Drops the keys whose newest value is oldest until bytes() is at most `maxBytes`. Returns how many keys it
  // has dropped.
  size_t keepNewest(size_t maxBytes);

  // Returns how many keys are known, cleared ones included.
  size_t keyCount() const;
  // Returns how many bytes of memory the keys and values take.
  size_t bytes() const;

  // Kept by the black box. A State neither reads nor writes them.
  bool isDead = false;
  int64_t deathTime = 0;  // seconds since the Unix epoch

 private:
  std::unique_ptr<PackedHistories> mHistories;
};

}  // namespace Torv::OS::Diagnostics
