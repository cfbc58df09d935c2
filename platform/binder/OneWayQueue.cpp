#include "OneWayQueue.h"

#include <utility>

#include "Dispatch.h"
#include "Log.h"

namespace platform::binder {
namespace {

using Torv::Base::LockGuard;

// The slot that a queue uses counts for nobody: a client that has used up its share of the pool does not hold
// up the one-way calls of others behind its own.
constexpr uid_t kNobody = static_cast<uid_t>(-1);

}  // namespace

void OneWayQueue::push(std::unique_ptr<Call> call) {
  const LockGuard guard(mMutex);
  if (mStopped) return;
  mCalls.push_back(std::move(call));
  mChanged.notify_one();
  if (std::exchange(mStarted, true)) return;
  if (const auto started = mThreads.start("BinderOneWay", [this] { run(); }); !started.ok()) {
    logError("one-way calls wait: %s", started.error().message().c_str());
    mStarted = false;  // the next call tries again
  }
}

void OneWayQueue::stop() {
  const LockGuard guard(mMutex);
  mStopped = true;
  mCalls.clear();
  mChanged.notify_one();
}

void OneWayQueue::run() {
  while (const auto call = next()) {
    const Shares::Part slot = mSlots.take(kNobody, 1);
    if (!slot) return;
    android::Parcel unwanted;
    dispatch(*mBinder, call->caller, call->header, call->data, &unwanted);
  }
}

std::unique_ptr<OneWayQueue::Call> OneWayQueue::next() {
  const LockGuard guard(mMutex);
  while (mCalls.empty() && !mStopped) mChanged.wait(mMutex);
  if (mStopped) return nullptr;
  auto call = std::move(mCalls.front());
  mCalls.pop_front();
  return call;
}

}  // namespace platform::binder
