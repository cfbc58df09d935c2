#include "Shares.h"

namespace platform::binder {

using Torv::Base::LockGuard;

Shares::Part Shares::take(uid_t uid, size_t amount) {
  std::shared_ptr<Waiter> self;
  {
    const LockGuard guard(mMutex);
    if (mClosed) return {};
    if (grant(uid, amount)) return Part(this, GiveBack{uid, amount});
    self = mWaiters.emplace_back(std::make_shared<Waiter>(uid, amount));
  }
  // Not a condition variable: the thread would need the mutex again, which the thread that wakes it holds.
  self->decided.acquire();
  return Part(self->granted ? this : nullptr, GiveBack{uid, amount});
}

void Shares::setShare(const Share& share) {
  const LockGuard guard(mMutex);
  mShare = share;
  grantToWaiters();
}

void Shares::close() {
  const LockGuard guard(mMutex);
  mClosed = true;
  for (const auto& waiter : mWaiters) waiter->decided.release();
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
    if (!grant((*waiter)->uid, (*waiter)->amount)) {
      ++waiter;
      continue;
    }
    (*waiter)->granted = true;
    (*waiter)->decided.release();
    waiter = mWaiters.erase(waiter);
  }
}

}  // namespace platform::binder
