#include "ConnectionTable.h"

#include <algorithm>
#include <tuple>

namespace platform::binder {

using Torv::Base::LockGuard;

bool ConnectionTable::add(Connection& connection) {
  const LockGuard guard(mMutex);
  // Counted anew each time: new connections are rare, because clients keep theirs.
  Counts held;
  for (const Connection* const other : mConnections) ++held[other->uid()];
  if (held[connection.uid()] >= std::max<size_t>(mMost / kConnectionShares, 1)) {
    if (!giveUpOne(held, connection.uid())) return false;
  } else if (mConnections.size() >= mMost && !giveUpOne(held, std::nullopt)) {
    return false;
  }
  mConnections.push_back(&connection);
  return true;
}

void ConnectionTable::remove(Connection& connection) {
  const LockGuard guard(mMutex);
  mConnections.remove(&connection);
}

void ConnectionTable::giveUpAll() {
  const LockGuard guard(mMutex);
  for (Connection* const connection : mConnections) connection->giveUp();
}

// Chooses among the connections of one uid, or of the uid that holds most: the one that has stalled for
// longest, else the one that has been idle for longest. The chosen connection leaves the table at once,
// although its thread has yet to end.
bool ConnectionTable::giveUpOne(const Counts& held, std::optional<uid_t> ofUid) {
  const auto now = SteadyClock::now();
  std::tuple<size_t, bool, SteadyClock::duration> most{};
  Connection* chosen = nullptr;
  for (Connection* const connection : mConnections) {
    if (ofUid && connection->uid() != *ofUid) continue;
    const Connection::State state = connection->state();
    const auto time = now - connection->inStateSince();
    if (state == Connection::State::Running || time < kGiveUpAfter) continue;
    const bool stalled = state == Connection::State::Transferring;
    const std::tuple claim{held.at(connection->uid()), stalled, time};
    if (chosen != nullptr && claim <= most) continue;
    most = claim;
    chosen = connection;
  }
  if (chosen == nullptr) return false;
  chosen->giveUp();
  mConnections.remove(chosen);
  return true;
}

}  // namespace platform::binder
