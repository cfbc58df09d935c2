// The reference for the black box: plain maps that keep three values for each key and do the same work.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace bench {

class Baseline {
 public:
  void add(int pid, const std::string& key, int64_t timestamp, std::string value);
  std::unordered_map<std::string, std::string> newest(int pid) const;
  std::unordered_map<int, std::unordered_map<std::string, std::string>> snapshot() const;

 private:
  struct Entry {
    int64_t timestamp = INT64_MIN;
    std::string value;
  };
  using History = std::array<Entry, 3>;  // oldest first; an unused entry has the least timestamp

  std::unordered_map<int, std::unordered_map<std::string, History>> mProcesses;
};

// One update. The black box and the reference get the same ones.
struct Update {
  int pid;
  const std::string* key;
  int64_t timestamp;
  std::string value;
};

constexpr int kKeys = 20;

// `rounds` updates of each of the 20 keys of every process from 1 to `processes`, in random order, with times
// that rise from `firstTimestamp` and values of about 8 characters.
std::vector<Update> updates(int processes, int rounds, int64_t firstTimestamp);

}  // namespace bench
