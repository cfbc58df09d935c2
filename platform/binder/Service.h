// What a server publishes: a binder object under a name, and how transactions reach it.
#pragma once

#include "parcel/ParcelHeader.h"

#include <deque>
#include <memory>
#include <string>
#include <utility>

#include <android-base/unique_fd.h>
#include <binder/Binder.h>

#include "Frame.h"
#include "ServiceAddress.h"
#include "Shares.h"
#include "Threads.h"
#include "base/Mutex.h"

namespace platform::binder {

// Runs a transaction on the calling thread, one of the server's. getCallingUid() and getCallingPid() name
// `caller` from then on. Returns the transaction's status: OK for a positive one, and the parcel's error if
// the reply could not be written. Leaves `reply`, which must be empty before, empty unless the status is OK.
android::status_t dispatch(android::BBinder& binder, Peer caller, const FrameHeader& header,
                           const android::Parcel& request, android::Parcel* reply);

// The one-way calls of one binder object. They run one after the other, in the order in which they came from
// all clients, on one thread. The first call starts the thread, which blocks while no call waits and ends
// with the server. Thread-safe.
class OneWayQueue {
 public:
  // A call that waits. It owns all that it needs, so its connection may close before it runs.
  struct Call {
    FrameHeader header{};
    uid_t caller = 0;
    android::Parcel data;
    Shares::Part room;  // of Limits::oneWays; given back when the call has run or is dropped
  };

  // Each call takes one of `slots` for as long as it runs. `slots` and `threads` must outlive the thread.
  OneWayQueue(android::sp<android::BBinder> binder, Shares& slots, Threads& threads)
      : mBinder(std::move(binder)), mSlots(slots), mThreads(threads) {}

  // Adds a call and does not wait for it. Drops it after stop(). Logs an error if the system has no thread
  // left; then the call waits, and the next push() tries again.
  void push(std::unique_ptr<Call> call);
  // Drops the calls that wait, and ends the thread after the call that it runs. Does not wait for the thread.
  // If the thread waits for a slot, it ends when `slots` is closed.
  void stop();

 private:
  void run();
  std::unique_ptr<Call> next();

  const android::sp<android::BBinder> mBinder;
  Shares& mSlots;
  Threads& mThreads;
  Torv::Base::Mutex mMutex;  // never held over a call
  Torv::Base::ConditionVariable mChanged;
  std::deque<std::unique_ptr<Call>> mCalls GUARDED_BY(mMutex);
  bool mStarted GUARDED_BY(mMutex) = false;
  bool mStopped GUARDED_BY(mMutex) = false;
};

// A binder object that a server publishes under a name.
struct Service {
  std::string name;
  android::sp<android::BBinder> binder;
  OneWayQueue& oneWays;  // the object's only one: two names of the same object share it
  android::base::unique_fd listener;
};

}  // namespace platform::binder
