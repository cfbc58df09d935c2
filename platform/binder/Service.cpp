#include "Service.h"

#include <binder/IPCThreadState.h>

#include "Log.h"

namespace platform::binder {
namespace {

using Torv::Base::LockGuard;

// The slots of one-way calls count for this uid, not for their clients: a client that has used up its share
// of the pool would otherwise delay the one-way calls of all others that wait behind its own.
constexpr uid_t kNobody = static_cast<uid_t>(-1);

}  // namespace

android::status_t dispatch(android::BBinder& binder, Peer caller, const FrameHeader& header,
                           const android::Parcel& request, android::Parcel* reply) {
  // The token of IPCThreadState: the uid above the pid. The thread has no other callers, so nothing is
  // restored.
  const auto token = static_cast<uint64_t>(caller.uid) << 32 | static_cast<uint32_t>(caller.pid);
  android::IPCThreadState::self()->restoreCallingIdentity(static_cast<int64_t>(token));
  android::status_t status = binder.transact(header.value, request, reply, header.flags);
  if (status >= android::OK) status = reply->errorCheck();
  if (status != android::OK) reply->freeData();
  return status;
}

void OneWayQueue::push(std::unique_ptr<Call> call) {
  const LockGuard guard(mMutex);
  if (mStopped) return;
  mCalls.push_back(std::move(call));
  mChanged.notify_one();
  if (mStarted) return;
  const auto started = mThreads.start("BinderOneWay", [this] { run(); });
  mStarted = started.ok();
  if (!mStarted) ALOGE("one-way calls wait: %s", started.error().message().c_str());
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
    // A one-way call has no calling pid, as on the device.
    dispatch(*mBinder, {call->caller, 0}, call->header, call->data, &unwanted);
  }
}

// Waits for the next call. Returns null after stop().
std::unique_ptr<OneWayQueue::Call> OneWayQueue::next() {
  const LockGuard guard(mMutex);
  while (mCalls.empty() && !mStopped) mChanged.wait(mMutex);
  if (mStopped) return nullptr;
  auto call = std::move(mCalls.front());
  mCalls.pop_front();
  return call;
}

}  // namespace platform::binder
