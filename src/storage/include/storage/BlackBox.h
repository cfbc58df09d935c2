#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "storage/KeyTable.h"
#include "storage/State.h"

namespace Torv::OS::Diagnostics {

// The last known states of every process, and of the global namespaces that belong to none. Remembers when a
// process was found dead and forgets it a time-to-live later; a global namespace is never forgotten.
//
// Not thread-safe: the application state manager's lock is held around every call.
class BlackBox {
 public:
  using WallClock = std::function<int64_t()>;  // seconds since the Unix epoch

  explicit BlackBox(WallClock wallClock = &unixTime);

  // `timestamp` is nanoseconds of CLOCK_BOOTTIME. A process that is marked dead takes new values and stays
  // dead.
  void addProcessState(int32_t pid, const std::string& key, int64_t timestamp, std::string value);

  // Like addProcessState(), but a value older than the newest held one means that the publisher's clock
  // started over: the key's history is dropped first.
  void addGlobalState(const std::string& nameSpace, const std::string& key, int64_t timestamp,
                      std::string value);

  // Notes the time of death of a process that is known and not marked yet.
  void markProcessAsDead(int32_t pid) const;

  // Key to newest value. Nothing where the pid is unknown.
  std::optional<std::unordered_map<std::string, std::string>> getAllForPid(int32_t pid) const;

  // The same for every process, dead ones included.
  std::unordered_map<int, std::unordered_map<std::string, std::string>> getAllProcessStates() const;

  // By namespace, key to newest value with its age (see State::get).
  std::unordered_map<std::string, std::unordered_map<std::string, std::string>> getAllGlobalStates() const;

  // The processes that are not marked dead.
  std::vector<int> getAllLivePids() const;

  // Forgets the processes that were marked dead at least `ttlSeconds` ago.
  void cleanupAllWithTtl(int64_t ttlSeconds);

 private:
  static int64_t unixTime();

  WallClock mWallClock;
  KeyTable mKeys;  // outlives the states below, which hold its names
  std::unordered_map<int32_t, std::unique_ptr<State>> mProcessStates;
  std::unordered_map<std::string, std::unique_ptr<State>> mGlobalStates;
};

}  // namespace Torv::OS::Diagnostics
