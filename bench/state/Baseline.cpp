#include "Baseline.h"

#include <algorithm>
#include <random>
#include <utility>

namespace bench {
namespace {

// Names as applications choose them. Some exceed the buffer inside std::string, so they allocate.
const std::vector<std::string>& keys() {
  static const std::vector<std::string> all = [] {
    std::vector<std::string> names;
    for (int i = 0; i < kKeys; i++) {
      names.push_back((i % 2 == 0 ? "screen" : "com.kerno.player.state") + std::to_string(i));
    }
    return names;
  }();
  return all;
}

}  // namespace

void Baseline::add(int pid, const std::string& key, int64_t timestamp, std::string value) {
  History& history = mProcesses[pid][key];
  if (timestamp <= history[0].timestamp) return;
  size_t place = 0;
  while (place + 1 < history.size() && history[place + 1].timestamp < timestamp) {
    history[place] = std::move(history[place + 1]);
    place++;
  }
  history[place].timestamp = timestamp;
  history[place].value = std::move(value);
}

std::unordered_map<std::string, std::string> Baseline::newest(int pid) const {
  std::unordered_map<std::string, std::string> all;
  const auto& states = mProcesses.at(pid);
  all.reserve(states.size());
  for (const auto& [key, history] : states) all.emplace(key, history.back().value);
  return all;
}

std::unordered_map<int, std::unordered_map<std::string, std::string>> Baseline::snapshot() const {
  std::unordered_map<int, std::unordered_map<std::string, std::string>> all;
  all.reserve(mProcesses.size());
  for (const auto& process : mProcesses) all.emplace(process.first, newest(process.first));
  return all;
}

std::vector<Update> updates(int processes, int rounds, int64_t firstTimestamp) {
  std::vector<Update> all;
  all.reserve(static_cast<size_t>(processes) * kKeys * rounds);
  for (int round = 0; round < rounds; round++) {
    for (int pid = 1; pid <= processes; pid++) {
      for (const std::string& key : keys()) all.push_back({pid, &key, 0, ""});
    }
  }
  std::shuffle(all.begin(), all.end(), std::mt19937(1));
  for (Update& update : all) {
    update.timestamp = firstTimestamp++;
    update.value = "v" + std::to_string(update.timestamp % 10'000'000);
  }
  return all;
}

}  // namespace bench
