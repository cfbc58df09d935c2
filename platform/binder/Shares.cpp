#include "Shares.h"

#include <algorithm>

namespace platform::binder {

using Torv::Base::LockGuard;

Shares::Part& Shares::Part::operator=(Part&& other) noexcept {
  if (this == &other) return *this;
  giveBack();
  mFrom = std::exchange(other.mFrom, nullptr);
  mUid = other.mUid;
  mAmount = other.mAmount;
  return *this;
}

void Shares::Part::giveBack() {
  if (Shares* const from = std::exchange(mFrom, nullptr); from != nullptr) from->giveBack(mUid, mAmount);
}

Shares::Part Shares::take(uid_t uid, size_t amount) {
  const LockGuard guard(mMutex);
  if (mClosed) return {};
  if (fits(uid, amount)) {
    grant(uid, amount);
    return {this, uid, amount};
  }
  Waiter self(uid, amount);
  mWaiters.push_back(&self);
  while (!self.granted && !mClosed) self.changed.wait(mMutex);
  if (self.granted) return {this, uid, amount};
  mWaiters.remove(&self);
  return {};
}

void Shares::setRule(const Rule& rule) {
  const LockGuard guard(mMutex);
  mRule = rule;
  grantToWaiters();
}

void Shares::close() {
  const LockGuard guard(mMutex);
  mClosed = true;
  for (Waiter* const waiter : mWaiters) waiter->changed.notify_one();
}

bool Shares::fits(uid_t uid, size_t amount) const {
  const size_t free = mRule.total - std::min(mUsed, mRule.total);
  if (amount > free) return false;
  const auto held = holder(uid);
  if ((held != mHolders.end() ? held->amount : 0) + amount <= mRule.byUid) return true;
  if (mRule.keptFree > free - amount) return false;
  return std::none_of(mWaiters.begin(), mWaiters.end(), [uid](const Waiter* w) { return w->uid != uid; });
}

void Shares::grant(uid_t uid, size_t amount) {
  mUsed += amount;
  const auto held = holder(uid);
  if (held == mHolders.end()) {
    mHolders.push_back({uid, amount});
  } else {
    mHolders[static_cast<size_t>(held - mHolders.begin())].amount += amount;
  }
}

void Shares::giveBack(uid_t uid, size_t amount) {
  const LockGuard guard(mMutex);
  mUsed -= amount;
  Holder& held = mHolders[static_cast<size_t>(holder(uid) - mHolders.begin())];
  held.amount -= amount;
  if (held.amount == 0) {
    held = mHolders.back();
    mHolders.pop_back();
  }
  grantToWaiters();
}

std::vector<Shares::Holder>::const_iterator Shares::holder(uid_t uid) const {
  return std::find_if(mHolders.begin(), mHolders.end(),
                      [uid](const Holder& held) { return held.uid == uid; });
}

void Shares::grantToWaiters() {
  for (auto waiter = mWaiters.begin(); waiter != mWaiters.end() && mUsed < mRule.total;) {
    Waiter& next = **waiter;
    if (!fits(next.uid, next.amount)) {
      ++waiter;
      continue;
    }
    waiter = mWaiters.erase(waiter);
    grant(next.uid, next.amount);
    next.granted = true;
    next.changed.notify_one();  // under the lock, because the waiter may go as soon as it sees `granted`
  }
}

}  // namespace platform::binder
