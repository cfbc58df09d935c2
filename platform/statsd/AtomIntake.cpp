#include "AtomIntake.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "Limits.h"
#include "StatsEventFormat.h"

namespace libstatsd {
namespace {

// How many lost atoms a drop note reports, or nullopt if the datagram is no drop note.
std::optional<uint32_t> dropNoteCount(std::string_view datagram) {
  constexpr size_t kTypeAt = kLogHeaderBytes + sizeof(int32_t);
  if (datagram.size() != kDropNoteBytes || datagram[kTypeAt] != kDropNoteType) return std::nullopt;
  uint32_t count = 0;  // the low half of the number; the high half is an atom id
  memcpy(&count, datagram.data() + kTypeAt + 1, sizeof(count));
  return count;
}

}  // namespace

AtomIntake::AtomIntake(uid_t serviceUid, ApplicationUids applications)
    : mServiceUid(serviceUid), mApplications(std::move(applications)) {}

void AtomIntake::configure(ConfigKey key, const ConfigRules& rules) {
  LogSources sources(rules.allowedSources, mServiceUid, mApplications);
  const auto [entry, added] = mConfigs.try_emplace(key, Config{rules, sources, AtomStore()});
  if (added) return;
  entry->second.rules = rules;
  entry->second.sources = std::move(sources);
}

bool AtomIntake::hears(uid_t sender) const {
  return std::any_of(mConfigs.begin(), mConfigs.end(),
                     [&](const auto& entry) { return entry.second.sources.allow(sender); });
}

void AtomIntake::receive(std::string_view datagram, uid_t sender) {
  mCounters.received++;
  UidCounters& ofSender = countersOf(sender);
  ofSender.received++;
  // The sender is checked first, so that nobody is decoded who is not heard.
  if (hears(sender)) return receiveHeard(datagram, sender);
  ofSender.notHeard++;
  if (mCounters.droppedSender++ == 0) note(sender, "is not heard: no configuration allows it as a source");
}

void AtomIntake::receiveHeard(std::string_view datagram, uid_t sender) {
  if (const auto lost = dropNoteCount(datagram)) {
    mCounters.dropNotes++;
    mCounters.lostBySenders += *lost;
    return;
  }
  const std::string_view event = datagram.substr(std::min(datagram.size(), kLogHeaderBytes + kTagBytes));
  switch (decodeStatsEvent(event, &mEvent)) {
    case DecodeResult::Decoded:
      mCounters.decoded++;
      return keep(sender);
    case DecodeResult::WriterError:
      if (mCounters.droppedErrors++ == 0) {
        note(sender, "gave up atom " + std::to_string(mEvent.atomId) + ": it is too large");
      }
      return;
    case DecodeResult::Malformed:
      if (mCounters.droppedMalformed++ == 0) {
        note(sender, "sent " + std::to_string(datagram.size()) + " bytes that are no event");
      }
      return;
  }
}

void AtomIntake::receiveTooLong(uid_t sender) {
  mCounters.received++;
  countersOf(sender).received++;
  if (mCounters.droppedTooLong++ == 0) note(sender, "sent a datagram that is longer than any event");
}

void AtomIntake::noteReceiveFailure(const std::string& error) {
  if (!std::exchange(mReceiveFailureNoted, true)) mNotices.push_back("cannot receive atoms: " + error);
}

void AtomIntake::keep(uid_t sender) {
  bool wanted = false;
  for (auto& [key, config] : mConfigs) {
    const std::vector<int32_t>& ids = config.rules.atomIds;
    if (std::find(ids.begin(), ids.end(), mEvent.atomId) == ids.end() || !config.sources.allow(sender)) {
      continue;
    }
    wanted = true;
    AtomRecord atom{mEvent.elapsedTimestampNs, mEvent.atomId, mEvent.fields};
    for (const uid_t loser : config.store.add(sender, std::move(atom))) {
      mCounters.droppedFull++;
      countersOf(loser).droppedFull++;
    }
  }
  if (!wanted) mCounters.droppedUnwanted++;
}

std::vector<AtomRecord> AtomIntake::take(ConfigKey key) {
  const auto found = mConfigs.find(key);
  if (found == mConfigs.end()) return {};
  std::vector<AtomRecord> taken = found->second.store.take();
  mCounters.fetched += taken.size();
  return taken;
}

void AtomIntake::describe(StatsdStatus& status) const {
  status.counters = mCounters;
  status.applicationUids = mApplications.text();
  for (const auto& [key, config] : mConfigs) {
    status.counters.held += config.store.count();
    for (const std::string& name : config.rules.allowedSources) {
      status.allowedSources.append(status.allowedSources.empty() ? "" : " ").append(name);
    }
  }
  for (const auto& [uid, counters] : mByUid) {
    UidCounters& listed = status.uids.emplace_back(counters);
    for (const auto& [key, config] : mConfigs) listed.held += config.store.countOf(uid);
  }
  std::stable_sort(status.uids.begin(), status.uids.end(), [](const UidCounters& a, const UidCounters& b) {
    return a.notHeard + a.droppedFull > b.notHeard + b.droppedFull;
  });
  status.uids.resize(std::min(status.uids.size(), kMaxListedUids));
}

UidCounters& AtomIntake::countersOf(uid_t uid) {
  const auto found = mByUid.find(uid);
  if (found != mByUid.end()) return found->second;
  if (mByUid.size() == kMaxCountedUids) return mOtherUids;
  return mByUid.emplace(uid, UidCounters{.uid = uid}).first->second;
}

void AtomIntake::note(uid_t sender, const std::string& what) {
  mNotices.push_back("uid " + std::to_string(sender) + " " + what +
                     " (logged once; diagctl status counts all)");
}

std::vector<std::string> AtomIntake::takeNotices(int64_t nowNs) {
  const uint64_t dropped = mCounters.droppedFull - mFullDropsLogged;
  if (dropped != 0 && mFullLimit.count(nowNs) != 0) {
    mNotices.push_back("dropped the oldest " + std::to_string(dropped) +
                       " atoms of full stores; nobody fetches them in time");
    mFullDropsLogged = mCounters.droppedFull;
  }
  return std::exchange(mNotices, {});
}

}  // namespace libstatsd
