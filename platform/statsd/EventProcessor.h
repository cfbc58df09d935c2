#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "AtomStore.h"
#include "LogSources.h"
#include "StatsEventDecoder.h"
#include "statsd/StatsdStatus.h"

namespace libstatsd {

// A configuration belongs to a uid and has an id of that uid's choice.
struct ConfigKey {
  int32_t uid = 0;
  int32_t id = 0;

  bool operator<(const ConfigKey& other) const { return uid != other.uid ? uid < other.uid : id < other.id; }
};

struct ConfigRules {
  std::vector<int32_t> atomIds;
  std::vector<std::string> allowedSources;
};

// statsd without its sockets: datagrams go in, kept atoms come out, everything dropped is counted. Not
// thread-safe.
class EventProcessor {
 public:
  using Clock = std::chrono::steady_clock;

  // `serviceUid`: see LogSources.
  explicit EventProcessor(uid_t serviceUid) : mServiceUid(serviceUid) {}

  // Adds a configuration, or replaces its rules; atoms kept already stay.
  void configure(ConfigKey key, const ConfigRules& rules);

  // Takes one datagram, whole, with the uid that sent it.
  void receive(std::string_view datagram, uid_t sender);

  // A datagram that did not fit the receiver's buffer.
  void receiveTooLong(uid_t sender);

  // The receiver's socket fails, which is logged once.
  void noteReceiveFailure(const std::string& error);

  // The atoms kept for a configuration, which then holds none; nothing where there are none.
  std::optional<AtomStore> take(ConfigKey key);

  bool hears(uid_t sender) const;
  StatsdCounters counters() const;
  std::string allowedSources() const;  // names of all configurations, separated by spaces

  // What there is to log since the last call: a first drop of each kind that is a sender's fault, and what
  // full stores dropped, that at most once a minute of the clock passed in.
  std::vector<std::string> takeNotices(Clock::time_point now);

 private:
  struct Config {
    ConfigRules rules;
    LogSources sources;
    AtomStore store;
  };

  void keep(uid_t sender);
  void note(uid_t sender, const std::string& what);

  uid_t mServiceUid;
  std::map<ConfigKey, Config> mConfigs;
  StatsdCounters mCounters;
  DecodedEvent mEvent;  // of the datagram at hand; kept for its capacity
  std::vector<std::string> mNotices;
  bool mReceiveFailureNoted = false;
  uint64_t mFullDropsLogged = 0;
  Clock::time_point mNextFullNotice = Clock::time_point::min();
};

}  // namespace libstatsd
