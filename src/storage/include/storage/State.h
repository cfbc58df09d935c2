#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "storage/KeyTable.h"
#include "storage/SlotIndex.h"

namespace Torv::OS::Diagnostics {

class History;

// One table of named application states: for each key its newest three values, ordered by time. A process
// has one, and so has a global namespace.
//
// Not thread-safe: guarded by the lock of the black box that holds it.
class State {
 public:
  struct Entry {
    int64_t timestamp = 0;  // nanoseconds, CLOCK_BOOTTIME
    std::string value;
  };

  // Ascending by time, on purpose not strict: no two entries count as equal, so all are kept, and a later one
  // goes before earlier ones of the same time. Not a strict weak order, hence not for a std::set.
  struct StateComparator {
    bool operator()(const Entry& a, const Entry& b) const { return a.timestamp <= b.timestamp; }
  };

  // `keys` numbers the names and must outlive the state.
  explicit State(KeyTable& keys);
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // Adds an observation at its place in time (nanoseconds, CLOCK_BOOTTIME). Of more than three the oldest is
  // dropped, which may be this one.
  void add(const std::string& key, int64_t timestamp, std::string value);

  // The newest value; of several with the same time the one added first. Nothing where the key is unknown or
  // was cleared. With age, the value comes as {"dt_ms":<age in ms>,"v":<value>}, and an entry of the future
  // is nothing.
  std::optional<std::string> get(const std::string& key, bool withAge) const;

  // get() of every key that holds something; an entry of the future becomes "".
  std::unordered_map<std::string, std::string> getAll(bool withAge) const;

  // The time of the newest value, in nanoseconds of CLOCK_BOOTTIME.
  std::optional<int64_t> newestTimestamp(const std::string& key) const;

  // Empties the key's history; the key stays known.
  void clear(const std::string& key);

  // Kept by the black box; a State neither reads nor writes them.
  bool isDead = false;
  int64_t deathTime = 0;  // seconds since the Unix epoch

 private:
  const History* find(const std::string& key) const;
  History* find(const std::string& key);
  History& findOrInsert(const std::string& key);

  KeyTable& mKeys;
  SlotIndex mIndex;                 // of mHistories
  std::vector<History> mHistories;  // in the order in which the keys came
};

}  // namespace Torv::OS::Diagnostics
