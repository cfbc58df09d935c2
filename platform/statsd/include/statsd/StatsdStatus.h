// What the host's statsd tells every user who asks: its counters, and whether it takes the asker's atoms.
// Whoever connects to the stream socket <runtime>/statsd-status gets a JSON document, and then the end of the
// file.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/result.h>
#include <json/value.h>
#include <sys/types.h>

namespace libstatsd {

// Counts since the service started, except `held`. Every received datagram counts once: as decoded, as a drop
// note, or as dropped because it is malformed, too long, given up, or its sender is not heard.
struct StatsdCounters {
  uint64_t received = 0;          // datagrams
  uint64_t decoded = 0;           // events
  uint64_t droppedMalformed = 0;  // no event by the format
  uint64_t droppedTooLong = 0;    // longer than any event
  uint64_t droppedErrors = 0;     // given up by their writers (too large)
  uint64_t droppedSender = 0;     // of a uid that the configuration takes no atoms of
  uint64_t droppedUnwanted = 0;   // decoded, but the configuration does not want this atom
  uint64_t droppedFull = 0;       // pushed out of the full store by newer ones
  uint64_t dropNotes = 0;         // datagrams in which writers tell of atoms they could not send
  uint64_t lostBySenders = 0;     // atoms that those notes report
  uint64_t fetched = 0;           // handed over
  uint64_t held = 0;              // atoms in the store now
};

// What became of the atoms of one uid.
struct UidCounters {
  uid_t uid = 0;
  uint64_t received = 0;     // datagrams
  uint64_t notHeard = 0;     // of these, dropped because the configuration takes no atoms of the uid
  uint64_t droppedFull = 0;  // atoms pushed out of the full store
  uint64_t held = 0;         // atoms in the store now
};

// The answer to one asker, as of the moment at which the service wrote it.
struct StatsdStatus {
  StatsdCounters counters;
  std::vector<UidCounters> uids;  // at most 16, those that lost most first
  pid_t servicePid = 0;
  uid_t serviceUid = 0;
  uid_t askerUid = 0;           // as the kernel gave it to the service
  bool askerHeard = false;      // the configuration takes atoms of askerUid
  std::string allowedSources;   // the names of the configuration, separated by spaces
  std::string applicationUids;  // what AID_APP among them stands for, beside serviceUid; see TORV_APP_UIDS
};

// Name of the stream socket in the runtime directory.
inline constexpr char kStatusSocket[] = "statsd-status";

// Asks the service of the current runtime directory for its status, and waits for the answer. Returns an
// error that names the socket if there is no service, or no answer within `patience`. The error's code is
// EAGAIN if a service is there but does not answer.
[[nodiscard]] android::base::Result<StatsdStatus> readStatsdStatus(std::chrono::milliseconds patience);

// Writes and reads the document on the socket: an object with a member for each value, counter names as
// forEachCounter() gives them, and the array "uids". Reading skips names that it does not know. It returns an
// error that says what is wrong if the text is not JSON, or if a value is missing or has the wrong type.
Json::Value toJson(const StatsdStatus& status);
[[nodiscard]] android::base::Result<StatsdStatus> parseStatsdStatus(std::string_view text);

// Calls visit(name, value) for every counter, in the order in which they are shown.
template <typename Counters, typename Visit>
void forEachCounter(Counters& counters, const Visit& visit) {
  visit("received", counters.received);
  visit("decoded", counters.decoded);
  visit("dropped_malformed", counters.droppedMalformed);
  visit("dropped_too_long", counters.droppedTooLong);
  visit("dropped_errors", counters.droppedErrors);
  visit("dropped_sender", counters.droppedSender);
  visit("dropped_unwanted", counters.droppedUnwanted);
  visit("dropped_full", counters.droppedFull);
  visit("drop_notes", counters.dropNotes);
  visit("lost_by_senders", counters.lostBySenders);
  visit("fetched", counters.fetched);
  visit("held", counters.held);
}

}  // namespace libstatsd
