#include "AtomIntake.h"

#include <algorithm>
#include <functional>
#include <utility>

#include <android-base/strings.h>
#include <unistd.h>

namespace libstatsd {

bool AtomIntake::configure(ConfigKey key, std::vector<int32_t> atomIds, std::vector<std::string> sources) {
  if (mKey && *mKey != key) return false;
  mKey = key;
  mAtomIds = std::move(atomIds);
  mSources = std::move(sources);
  mAllowedUids = uidsOfSources(mSources, getuid(), mApplications);
  return true;
}

void AtomIntake::receive(std::string_view datagram, bool isCut, uid_t sender) {
  UidCounters& ofSender = countersOf(sender);
  mCounters.received++;
  ofSender.received++;
  if (isCut) {
    if (mCounters.droppedTooLong++ == 0) note(sender, "sent a datagram that is longer than any event");
  } else if (contains(mAllowedUids, sender)) {
    receiveHeard(datagram, sender);
  } else {
    ofSender.notHeard++;
    if (mCounters.droppedSender++ == 0)
      note(sender, "is not heard: the configuration does not allow it as a source");
  }
}

void AtomIntake::receiveHeard(std::string_view datagram, uid_t sender) {
  switch (decodeDatagram(datagram, mDecoded)) {
    case DatagramKind::Event:
      mCounters.decoded++;
      return keep(sender);
    case DatagramKind::GivenUp:
      if (mCounters.droppedErrors++ == 0) {
        note(sender, "gave up atom " + std::to_string(mDecoded.atomId) + ": it is too large");
      }
      return;
    case DatagramKind::DropNote:
      mCounters.dropNotes++;
      mCounters.lostBySenders += mDecoded.lost;
      return;
    case DatagramKind::Malformed:
      if (mCounters.droppedMalformed++ == 0) {
        note(sender, "sent " + std::to_string(datagram.size()) + " bytes that are no event");
      }
      return;
  }
}

void AtomIntake::keep(uid_t sender) {
  if (std::find(mAtomIds.begin(), mAtomIds.end(), mDecoded.atomId) == mAtomIds.end()) {
    mCounters.droppedUnwanted++;
    return;
  }
  AtomReport report{mDecoded.elapsedTimestampNs, {}};
  // As on a device, the atom of an event without fields is empty. The fields are copied, because moved they
  // would take their spare capacity along.
  if (!mDecoded.fields.empty()) {
    report.atom.mutable_unknown_fields()->AddLengthDelimited(mDecoded.atomId, mDecoded.fields);
  }
  mCounters.held++;
  countersOf(sender).held++;
  for (const uid_t loser : mStore.add(sender, std::move(report))) {
    UidCounters& ofLoser = countersOf(loser);
    mCounters.held--;
    ofLoser.held--;
    mCounters.droppedFull++;
    ofLoser.droppedFull++;
  }
}

Report AtomIntake::take(ConfigKey key) {
  if (key != mKey) return {};
  mCounters.fetched += std::exchange(mCounters.held, 0);
  for (auto& [uid, counters] : mByUid) counters.held = 0;
  mOtherUids.held = 0;
  return mStore.take();
}

StatsdStatus AtomIntake::status(uid_t asker) const {
  StatsdStatus status;
  status.counters = mCounters;
  status.servicePid = getpid();
  status.serviceUid = getuid();
  status.askerUid = asker;
  status.askerHeard = contains(mAllowedUids, asker);
  status.allowedSources = android::base::Join(mSources, ' ');
  status.applicationUids = mApplications.text;
  for (const auto& [uid, counters] : mByUid) status.uids.push_back(counters);
  const auto lostOf = [](const UidCounters& of) { return of.notHeard + of.droppedFull; };
  std::ranges::stable_sort(status.uids, std::greater<>(), lostOf);
  status.uids.resize(std::min(status.uids.size(), kMaxListedUids));
  return status;
}

std::vector<std::string> AtomIntake::takeNotices(int64_t nowNs) {
  const uint64_t dropped = mCounters.droppedFull - mFullDropsLogged;
  if (dropped != 0 && mFullLimit.count(nowNs) != 0) {
    mNotices.push_back("dropped the oldest " + std::to_string(dropped) +
                       " atoms of the full store; nobody fetches them in time");
    mFullDropsLogged = mCounters.droppedFull;
  }
  return std::exchange(mNotices, {});
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

std::vector<uid_t> AtomStore::add(uid_t sender, AtomReport atom) {
  std::vector<uid_t> dropped;
  const size_t bytes = bytesOf(atom);
  while (!mQueues.empty() && mBytes + bytes > kMaxStoreBytes) dropped.push_back(dropOldest());
  Queue& queue = mQueues[sender];
  queue.entries.push_back({mSequence++, std::move(atom)});
  queue.bytes += bytes;
  mBytes += bytes;
  return dropped;
}

uid_t AtomStore::dropOldest() {
  const auto most = std::ranges::max_element(mQueues, {}, [](const auto& held) { return held.second.bytes; });
  auto& [sender, queue] = *most;
  const uid_t loser = sender;
  const size_t bytes = bytesOf(queue.entries.front().atom);
  queue.entries.pop_front();
  queue.bytes -= bytes;
  mBytes -= bytes;
  if (queue.entries.empty()) mQueues.erase(most);
  return loser;
}

Report AtomStore::take() {
  // Each queue is in order, but the order between the queues is in the sequence numbers only.
  std::vector<Entry*> inOrder;
  for (auto& [sender, queue] : mQueues) {
    for (Entry& entry : queue.entries) inOrder.push_back(&entry);
  }
  if (mQueues.size() > 1) std::ranges::sort(inOrder, {}, &Entry::sequence);
  Report atoms;
  atoms.reserve(inOrder.size());
  for (Entry* entry : inOrder) atoms.push_back(std::move(entry->atom));
  mQueues.clear();
  mBytes = 0;
  return atoms;
}

size_t AtomStore::bytesOf(const AtomReport& atom) {
  return kAtomBytes + atom.atom.unknown_fields().length_delimited().size();
}

}  // namespace libstatsd
