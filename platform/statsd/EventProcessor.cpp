#include "EventProcessor.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "StatsEventFormat.h"

namespace libstatsd {
namespace {

constexpr std::chrono::minutes kFullNoticePause{1};

// How many atoms a drop note tells of; nothing where the datagram is none.
std::optional<uint32_t> dropNoteCount(std::string_view datagram) {
  constexpr size_t kTypeAt = kLogHeaderBytes + sizeof(int32_t);
  if (datagram.size() != kDropNoteBytes || datagram[kTypeAt] != kDropNoteType) return std::nullopt;
  uint32_t count = 0;  // the low half of the number; the high half is an atom id
  memcpy(&count, datagram.data() + kTypeAt + 1, sizeof(count));
  return count;
}

}  // namespace

void EventProcessor::configure(ConfigKey key, const ConfigRules& rules) {
  const auto [entry, added] =
      mConfigs.try_emplace(key, Config{rules, {rules.allowedSources, mServiceUid}, AtomStore()});
  if (added) return;
  entry->second.rules = rules;
  entry->second.sources = {rules.allowedSources, mServiceUid};
}

bool EventProcessor::hears(uid_t sender) const {
  return std::any_of(mConfigs.begin(), mConfigs.end(),
                     [&](const auto& entry) { return entry.second.sources.allow(sender); });
}

void EventProcessor::receive(std::string_view datagram, uid_t sender) {
  mCounters.received++;
  // The sender comes first: decoding is not spent on whoever is not heard anyway.
  if (!hears(sender)) {
    if (mCounters.droppedSender++ == 0) note(sender, "is not heard: no configuration allows it as a source");
    return;
  }
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

void EventProcessor::receiveTooLong(uid_t sender) {
  mCounters.received++;
  if (mCounters.droppedTooLong++ == 0) note(sender, "sent a datagram that is longer than any event");
}

void EventProcessor::noteReceiveFailure(const std::string& error) {
  if (!std::exchange(mReceiveFailureNoted, true)) mNotices.push_back("cannot receive atoms: " + error);
}

void EventProcessor::keep(uid_t sender) {
  bool wanted = false;
  for (auto& [key, config] : mConfigs) {
    const std::vector<int32_t>& ids = config.rules.atomIds;
    if (std::find(ids.begin(), ids.end(), mEvent.atomId) == ids.end() || !config.sources.allow(sender))
      continue;
    wanted = true;
    mCounters.droppedFull += config.store.append(mEvent.elapsedTimestampNs, mEvent.atomId, mEvent.fields);
  }
  if (!wanted) mCounters.droppedUnwanted++;
}

std::optional<AtomStore> EventProcessor::take(ConfigKey key) {
  const auto found = mConfigs.find(key);
  if (found == mConfigs.end() || found->second.store.count() == 0) return std::nullopt;
  AtomStore taken = std::exchange(found->second.store, AtomStore());
  mCounters.fetched += taken.count();
  return taken;
}

StatsdCounters EventProcessor::counters() const {
  StatsdCounters counters = mCounters;
  for (const auto& [key, config] : mConfigs) counters.held += config.store.count();
  return counters;
}

std::string EventProcessor::allowedSources() const {
  std::string names;
  for (const auto& [key, config] : mConfigs) {
    for (const std::string& name : config.rules.allowedSources)
      names.append(names.empty() ? "" : " ").append(name);
  }
  return names;
}

void EventProcessor::note(uid_t sender, const std::string& what) {
  mNotices.push_back("uid " + std::to_string(sender) + " " + what + " (said once; diagctl status counts on)");
}

std::vector<std::string> EventProcessor::takeNotices(Clock::time_point now) {
  if (const uint64_t dropped = mCounters.droppedFull - mFullDropsLogged;
      dropped != 0 && now >= mNextFullNotice) {
    mNotices.push_back("dropped the oldest " + std::to_string(dropped) +
                       " atoms of full stores; nobody fetches them in time");
    mFullDropsLogged = mCounters.droppedFull;
    mNextFullNotice = now + kFullNoticePause;
  }
  return std::exchange(mNotices, {});
}

}  // namespace libstatsd
