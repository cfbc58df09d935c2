#include "Shares.h"

namespace platform::binder {

using Torv::Base::LockGuard;

Shares::Part Shares::take(uid_t uid, size_t amount) {
  Waiter self{uid, amount};
  {
    const LockGuard guard(mMutex);
    if (mClosed) return {};
    if (grant(uid, amount)) return Part(this, GiveBack{uid, amount});
    mWaiters.push_back(&self);
  }
  // Not a condition variable: the thread would need the mutex again, which the thread that wakes it holds.
  self.decided.acquire();
  return Part(self.granted ? this : nullptr, GiveBack{uid, amount});
}

void Shares::setShare(const Share& share) {
  const LockGuard guard(mMutex);
  mShare = share;
  grantToWaiters();
}

void Shares::close() {
  const LockGuard guard(mMutex);
  mClosed = true;
  for (Waiter* const waiter : mWaiters) waiter->decided.release();
  mWaiters.clear();
}

bool Shares::grant(uid_t uid, size_t amount) {
  size_t& held = mHeld[uid];
  if (held + amount > mShare.byUid || mUsed + amount > mShare.total) return false;
  held += amount;
  mUsed += amount;
  return true;
}

void Shares::giveBack(uid_t uid, size_t amount) {
  const LockGuard guard(mMutex);
  mUsed -= amount;
  mHeld[uid] -= amount;
  grantToWaiters();
}

void Shares::grantToWaiters() {
  for (auto waiter = mWaiters.begin(); waiter != mWaiters.end() && mUsed < mShare.total;) {
    Waiter& next = **waiter;
    if (!grant(next.uid, next.amount)) {
      ++waiter;
      continue;
    }
    waiter = mWaiters.erase(waiter);
    next.granted = true;
    next.decided.release();
  }
}

}  // namespace platform::binder
