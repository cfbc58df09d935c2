#include "ConnectionTable.h"

#include <algorithm>
#include <tuple>

namespace platform::binder {
namespace {

using Torv::Base::LockGuard;

}  // namespace

bool ConnectionTable::reserve(uid_t uid) {
  const LockGuard guard(mMutex);
  const auto held = mHeld.find(uid);
  const bool usedUp = held != mHeld.end() && held->second >= std::max<size_t>(mMost / kConnectionShares, 1);
  if (usedUp && !giveUpOne(uid)) return false;
  if (!usedUp && mCount >= mMost && !giveUpOne(std::nullopt)) return false;
  ++mHeld[uid];
  ++mCount;
  return true;
}

void ConnectionTable::add(Connection& connection) {
  const LockGuard guard(mMutex);
  mConnections.push_back(&connection);
}

void ConnectionTable::remove(Connection& connection) {
  const LockGuard guard(mMutex);
  const auto entry = std::find(mConnections.begin(), mConnections.end(), &connection);
  if (entry == mConnections.end()) return;
  mConnections.erase(entry);
  uncount(connection.uid());
}

void ConnectionTable::giveUpAll() {
  const LockGuard guard(mMutex);
  for (Connection* const connection : mConnections) connection->giveUp();
}

// Of one uid, or of the uid that holds most: the connection that has stalled for longest, else the one that
// has been idle for longest. A connection that is given up counts no more, although its thread has yet to
// end.
bool ConnectionTable::giveUpOne(std::optional<uid_t> ofUid) {
  const auto now = CoarseClock::now();
  std::tuple<size_t, bool, CoarseClock::duration> most{};
  auto chosen = mConnections.end();
  for (auto entry = mConnections.begin(); entry != mConnections.end(); ++entry) {
    const Connection& connection = **entry;
    if (ofUid && connection.uid() != *ofUid) continue;
    const Connection::State state = connection.state();
    const auto time = connection.timeInState(now);
    if (state == Connection::State::Running || time < kGiveUpAfter) continue;
    const bool stalled = state == Connection::State::Transferring;
    const std::tuple claim{mHeld[connection.uid()], stalled, time};
    if (chosen != mConnections.end() && claim <= most) continue;
    most = claim;
    chosen = entry;
  }
  if (chosen == mConnections.end()) return false;
  (*chosen)->giveUp();
  uncount((*chosen)->uid());
  mConnections.erase(chosen);
  return true;
}

void ConnectionTable::uncount(uid_t uid) {
  const auto held = mHeld.find(uid);
  if (--held->second == 0) mHeld.erase(held);
  --mCount;
}

}  // namespace platform::binder
