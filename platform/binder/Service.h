// What a server publishes: a binder object under a name, and how transactions reach it.
#pragma once

#include "parcel/ParcelHeader.h"

#include <deque>
#include <memory>
#include <string>

#include <binder/Binder.h>

#include "Frame.h"
#include "ServiceAddress.h"
#include "Shares.h"
#include "Threads.h"
#include "base/Mutex.h"

namespace platform::binder {

// Hands a transaction to `binder` on the calling thread, on which getCallingUid() and getCallingPid() name
// `caller` until it returns; a one-way transaction's pid is 0, as on the device. Returns the transaction's
// status: OK for a positive one, and the parcel's error if the reply could not be written. `reply` is empty
// before the call, and after it unless the status is OK.
android::status_t dispatch(android::BBinder& binder, Peer caller, const FrameHeader& header,
                           const android::Parcel& request, android::Parcel* reply);

// The one-way transactions of one binder object. They run one after the other, in the order in which they
// came from all clients, on one thread that starts with the first of them and ends with the server.
// Thread-safe.
class OneWayQueue {
 public:
  // Everything that a call needs: its connection may be closed before it runs.
  struct Call {
    FrameHeader header;
    Peer caller;
    android::Parcel data;
    Shares::Part room;  // of Limits::oneWays
  };

  // Each call takes a slot of the pool for as long as it runs.
  OneWayQueue(android::sp<android::BBinder> binder, Shares& slots, Threads& threads)
      : mBinder(std::move(binder)), mSlots(slots), mThreads(threads) {}

  // Adds a call. After stop() it is dropped.
  void push(std::unique_ptr<Call> call);
  // Ends the thread after the call that it runs. The calls that wait are dropped.
  void stop();

 private:
  void run();
  std::unique_ptr<Call> next();

  const android::sp<android::BBinder> mBinder;
  Shares& mSlots;
  Threads& mThreads;
  Torv::Base::Mutex mMutex;
  Torv::Base::ConditionVariable mChanged;
  std::deque<std::unique_ptr<Call>> mCalls GUARDED_BY(mMutex);
  bool mStarted GUARDED_BY(mMutex) = false;
  bool mStopped GUARDED_BY(mMutex) = false;
};

// A service as its connections see it.
struct Service {
  std::string name;
  android::sp<android::BBinder> binder;
  std::shared_ptr<OneWayQueue> oneWays;
};

}  // namespace platform::binder
