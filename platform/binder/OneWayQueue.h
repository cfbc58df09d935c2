#pragma once

#include "parcel/ParcelHeader.h"

#include <deque>
#include <memory>

#include <binder/Binder.h>

#include "Frame.h"
#include "Shares.h"
#include "Socket.h"
#include "Threads.h"
#include "base/Mutex.h"

namespace platform::binder {

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

}  // namespace platform::binder
