#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "AtomStore.h"
#include "LogSources.h"
#include "StatsEventDecoder.h"
#include "runtime/LogLimit.h"
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

// statsd without its sockets: takes datagrams, checks their senders, decodes them, and keeps the atoms that a
// configuration wants. Everything dropped is counted. Not thread-safe.
class AtomIntake {
 public:
  // `serviceUid` and `applications`: see LogSources.
  AtomIntake(uid_t serviceUid, ApplicationUids applications);

  // Adds a configuration, or replaces its rules; the atoms it keeps already stay.
  void configure(ConfigKey key, const ConfigRules& rules);

  // Takes one datagram, as a whole, with the uid that sent it.
  void receive(std::string_view datagram, uid_t sender);
  // Counts a datagram that did not fit the receiver's buffer.
  void receiveTooLong(uid_t sender);
  // The receiver's socket fails. The first error is logged.
  void noteReceiveFailure(const std::string& error);

  // Removes and returns the atoms kept for a configuration, in order of arrival.
  std::vector<AtomRecord> take(ConfigKey key);

  // Whether a configuration takes atoms of `sender`.
  bool hears(uid_t sender) const;
  // Fills counters, sources and uids of `status`.
  void describe(StatsdStatus& status) const;

  // The log lines since the last call: the first drop of each kind that is a sender's fault, and what full
  // stores dropped, at most once a minute. `nowNs` is a reading of CLOCK_BOOTTIME.
  std::vector<std::string> takeNotices(int64_t nowNs);

 private:
  struct Config {
    ConfigRules rules;
    LogSources sources;
    AtomStore store;
  };

  void receiveHeard(std::string_view datagram, uid_t sender);
  void keep(uid_t sender);
  UidCounters& countersOf(uid_t uid);
  void note(uid_t sender, const std::string& what);

  const uid_t mServiceUid;
  const ApplicationUids mApplications;
  std::map<ConfigKey, Config> mConfigs;
  StatsdCounters mCounters;
  std::map<uid_t, UidCounters> mByUid;
  UidCounters mOtherUids;  // of all uids beyond kMaxCountedUids; not shown
  DecodedEvent mEvent;     // of the present datagram; a member because it keeps its capacity
  std::vector<std::string> mNotices;
  bool mReceiveFailureNoted = false;
  uint64_t mFullDropsLogged = 0;
  platform::LogLimit mFullLimit{60 * platform::LogLimit::kSecondNs};
};

}  // namespace libstatsd
