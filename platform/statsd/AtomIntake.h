#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "Limits.h"
#include "LogSources.h"
#include "StatsEventFormat.h"
#include "runtime/LogLimit.h"
#include "statsd/StatsdCollection.h"
#include "statsd/StatsdStatus.h"

namespace libstatsd {

// A configuration belongs to a uid and has an id of that uid's choice.
struct ConfigKey {
  int32_t uid = 0;
  int32_t id = 0;

  bool operator==(const ConfigKey&) const = default;
};

// The atoms kept between two fetches. They are kept by sender, so that a full store takes from the sender who
// holds most, and one publisher cannot push out another's atoms. Holds at most kMaxStoreBytes. Not
// thread-safe.
class AtomStore {
 public:
  // Adds an atom of `sender`. If it does not fit, drops the oldest atom of the uid that holds most bytes,
  // until it does. Returns the sender of each dropped atom; in most cases that list is empty.
  std::vector<uid_t> add(uid_t sender, AtomReport atom);

  // Removes and returns all atoms, in the order in which they were added.
  Report take();

 private:
  struct Entry {
    uint64_t sequence;  // counts all atoms added, so it gives the order between senders
    AtomReport atom;
  };
  struct Queue {
    size_t bytes = 0;
    std::deque<Entry> entries;  // never empty
  };

  // What an atom counts in the limit.
  static size_t bytesOf(const AtomReport& atom);
  // Drops the oldest atom of the uid that holds most bytes, and returns that uid. The store must hold one.
  uid_t dropOldest();

  size_t mBytes = 0;  // of all queues
  uint64_t mSequence = 0;
  std::map<uid_t, Queue> mQueues;
};

// statsd without its sockets: takes datagrams, checks their senders, decodes them, and keeps the atoms that
// the configuration wants. Everything dropped is counted. Not thread-safe.
class AtomIntake {
 public:
  // Sets the configuration: atoms of these ids are kept, from these sources (see uidsOfSources()). Publishing
  // again replaces ids and sources; atoms that are kept already stay. Returns false, and changes nothing, if
  // there is a configuration with another key: a host has one service and keeps one.
  [[nodiscard]] bool configure(ConfigKey key, std::vector<int32_t> atomIds, std::vector<std::string> sources);

  // Takes one datagram with the uid that sent it. `isCut` says that it is longer than any event, and that
  // `datagram` is only its beginning.
  void receive(std::string_view datagram, bool isCut, uid_t sender);

  // Removes and returns the atoms kept for a configuration, in order of arrival; none for another key.
  Report take(ConfigKey key);

  // Returns the status for `asker`, the uid that wants to know whether it is heard.
  StatsdStatus status(uid_t asker) const;

  // Returns the log lines since the last call: the first drop of each kind that is a sender's fault, and what
  // the full store dropped, at most once a minute. `nowNs` is a reading of CLOCK_BOOTTIME.
  std::vector<std::string> takeNotices(int64_t nowNs);

 private:
  // Takes a datagram of a sender whom the configuration allows.
  void receiveHeard(std::string_view datagram, uid_t sender);
  // Stores the atom of mDecoded if the configuration wants it.
  void keep(uid_t sender);
  // Returns the counters of `uid`, or mOtherUids if kMaxCountedUids uids have counters already.
  UidCounters& countersOf(uid_t uid);
  // Adds a log line. Callers do it for the first drop of a kind only, so that no sender can fill the log.
  void note(uid_t sender, const std::string& what);

  const ApplicationUids mApplications = ApplicationUids::ofThisHost();
  StatsdCounters mCounters;
  std::map<uid_t, UidCounters> mByUid;
  UidCounters mOtherUids;  // of all uids beyond kMaxCountedUids; not shown

  std::optional<ConfigKey> mKey;  // none until there is a configuration
  std::vector<int32_t> mAtomIds;
  std::vector<std::string> mSources;
  UidRanges mAllowedUids;
  AtomStore mStore;

  DecodedDatagram mDecoded;  // the present one; a member because it keeps its capacity
  std::vector<std::string> mNotices;
  uint64_t mFullDropsLogged = 0;
  platform::LogLimit mFullLimit{60 * platform::LogLimit::kSecondNs};
};

}  // namespace libstatsd
