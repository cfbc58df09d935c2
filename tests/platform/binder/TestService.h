#pragma once

#include "parcel/ParcelHeader.h"

#include <condition_variable>
#include <mutex>
#include <vector>

#include <binder/Binder.h>
#include <binder/IPCThreadState.h>

namespace test {

// A service that does what a test needs of the other process. It waits where it is told to and never sleeps.
class TestService : public android::BBinder {
 public:
  enum Code : uint32_t {
    kWho = FIRST_CALL_TRANSACTION,  // -> int32 calling uid, int32 calling pid
    kReplyWith,                     // int32 n -> n bytes
    kHold,                          // waits for kRelease
    kRelease,
    kStop,        // stops the process's pool
    kNote,        // int32 number: added to the notes
    kAwaitNotes,  // int32 n -> int32[] the notes, when there are n of them or more
  };

  std::vector<int32_t> awaitNotes(size_t count) {
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [&] { return mNotes.size() >= count; });
    return mNotes;
  }

  const android::String16& getInterfaceDescriptor() const override { return mDescriptor; }

  // Waits until a call waits in kHold.
  void awaitHeld() {
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [this] { return mHeld > 0; });
  }
  void release() { change(kRelease, 0); }

  android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags) override {
    auto* const thread = android::IPCThreadState::self();
    switch (code) {
      case kWho:
        reply->writeInt32(static_cast<int32_t>(thread->getCallingUid()));
        return reply->writeInt32(thread->getCallingPid());
      case kReplyWith:
        return reply->setDataSize(data.readInt32());
      case kAwaitNotes:
        return reply->writeInt32Vector(awaitNotes(data.readInt32()));
      case kStop:
        thread->stopProcess();
        return android::OK;
      case kHold:
      case kRelease:
      case kNote:
        change(code, data.readInt32());
        return android::OK;
      default:
        return BBinder::onTransact(code, data, reply, flags);
    }
  }

 private:
  void change(uint32_t code, int32_t number) {
    std::unique_lock lock(mMutex);
    if (code == kHold) {
      ++mHeld;
      mChanged.notify_all();
      mChanged.wait(lock, [this] { return mReleased; });
    }
    if (code == kRelease) mReleased = true;
    if (code == kNote) mNotes.push_back(number);
    mChanged.notify_all();
  }

  const android::String16 mDescriptor{"test.TestService"};
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::vector<int32_t> mNotes;  // guarded by mMutex
  int mHeld = 0;                // guarded by mMutex
  bool mReleased = false;       // guarded by mMutex
};

}  // namespace test
