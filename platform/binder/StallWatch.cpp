#include "StallWatch.h"

#include <iterator>
#include <utility>

namespace platform::binder {

StallWatch::Ticket StallWatch::add(Clock::time_point now, size_t bytes, std::function<void()> drop) {
  std::lock_guard guard(mMutex);
  const Ticket ticket = mEntries.insert(mEntries.end(), Entry{now, 0, std::move(drop)});
  setBytes(ticket, bytes);
  return ticket;
}

void StallWatch::restart(Ticket ticket, Clock::time_point now, size_t bytes) {
  std::lock_guard guard(mMutex);
  mEntries.splice(mEntries.end(), mEntries, ticket);
  ticket->since = now;
  setBytes(ticket, bytes);
}

void StallWatch::resize(Ticket ticket, size_t bytes) {
  std::lock_guard guard(mMutex);
  setBytes(ticket, bytes);
}

void StallWatch::remove(Ticket ticket) {
  std::lock_guard guard(mMutex);
  mBytes -= ticket->bytes;
  mEntries.erase(ticket);
}

std::optional<StallWatch::Clock::time_point> StallWatch::expire(Clock::time_point now) {
  std::lock_guard guard(mMutex);
  for (Entry& entry : mEntries) {
    if (now < due(entry.since)) return due(entry.since);
    entry.drop();
  }
  return std::nullopt;
}

// Requires mMutex.
void StallWatch::setBytes(Ticket ticket, size_t bytes) {
  mBytes += bytes - ticket->bytes;
  ticket->bytes = bytes;
  size_t left = mBytes;
  for (auto entry = mEntries.begin(); left > mMaxBytes && entry != mEntries.end(); ++entry) {
    entry->drop();
    left -= entry->bytes;
  }
}

}  // namespace platform::binder
