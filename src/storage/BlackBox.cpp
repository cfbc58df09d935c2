#include "storage/BlackBox.h"

#include <ctime>
#include <utility>

namespace Torv::OS::Diagnostics {

BlackBox::BlackBox(WallClock wallClock) : mWallClock(std::move(wallClock)) {}

void BlackBox::addProcessState(int32_t pid, const std::string& key, int64_t timestamp, std::string value) {
  std::unique_ptr<State>& state = mProcessStates[pid];
  if (state == nullptr) state = std::make_unique<State>(mKeys);
  state->add(key, timestamp, std::move(value));
}

void BlackBox::addGlobalState(const std::string& nameSpace, const std::string& key, int64_t timestamp,
                              std::string value) {
  std::unique_ptr<State>& state = mGlobalStates[nameSpace];
  if (state == nullptr) state = std::make_unique<State>(mKeys);
  const std::optional<int64_t> newest = state->newestTimestamp(key);
  if (newest && *newest > timestamp) state->clear(key);
  state->add(key, timestamp, std::move(value));
}

void BlackBox::markProcessAsDead(int32_t pid) const {
  const auto found = mProcessStates.find(pid);
  if (found == mProcessStates.end() || found->second == nullptr || found->second->isDead) return;
  found->second->isDead = true;
  found->second->deathTime = mWallClock();
}

std::optional<std::unordered_map<std::string, std::string>> BlackBox::getAllForPid(int32_t pid) const {
  const auto found = mProcessStates.find(pid);
  if (found == mProcessStates.end() || found->second == nullptr) return std::nullopt;
  return found->second->getAll(false);
}

std::unordered_map<int, std::unordered_map<std::string, std::string>> BlackBox::getAllProcessStates() const {
  std::unordered_map<int, std::unordered_map<std::string, std::string>> all;
  all.reserve(mProcessStates.size());
  for (const auto& [pid, state] : mProcessStates) {
    if (state != nullptr) all.emplace(pid, state->getAll(false));
  }
  return all;
}

std::unordered_map<std::string, std::unordered_map<std::string, std::string>> BlackBox::getAllGlobalStates()
    const {
  std::unordered_map<std::string, std::unordered_map<std::string, std::string>> all;
  for (const auto& [nameSpace, state] : mGlobalStates) {
    if (state != nullptr) all.emplace(nameSpace, state->getAll(true));
  }
  return all;
}

std::vector<int> BlackBox::getAllLivePids() const {
  std::vector<int> pids;
  pids.reserve(mProcessStates.size());
  for (const auto& [pid, state] : mProcessStates) {
    if (state != nullptr && !state->isDead) pids.push_back(pid);
  }
  return pids;
}

void BlackBox::cleanupAllWithTtl(int64_t ttlSeconds) {
  const int64_t now = mWallClock();
  for (auto item = mProcessStates.begin(); item != mProcessStates.end();) {
    const State* state = item->second.get();
    const bool over = state == nullptr || (state->isDead && state->deathTime + ttlSeconds <= now);
    item = over ? mProcessStates.erase(item) : std::next(item);
  }
}

int64_t BlackBox::unixTime() {
  return time(nullptr);
}

}  // namespace Torv::OS::Diagnostics
