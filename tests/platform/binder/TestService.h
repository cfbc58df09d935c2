#pragma once

#include <limits>
#include <memory>
#include <optional>

#include <condition_variable>
#include <mutex>
#include <vector>

#include <binder/Binder.h>
#include <binder/Parcel.h>

namespace test {

// A service that does what a test needs of the other process. It waits where it is told to and never sleeps.
class TestService : public android::BBinder {
 public:
  enum Code : uint32_t {
    kWho = FIRST_CALL_TRANSACTION,  // -> int32 calling uid, int32 calling pid, int32 flags
    kReplyWith,                     // int32 n -> n bytes
    kKill,                          // kills its process
    kStop,                          // stops its pool
    kHold,                          // waits for kRelease
    kRelease,
    kNote,        // int32 number: added to the notes
    kNotes,       // -> int32[] the notes
    kAwaitNotes,  // int32 n -> int32[] the notes, when there are n of them
  };

  android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags) override;

  std::vector<int32_t> notes() const;
  std::vector<int32_t> awaitNotes(size_t count);
  void release();

 private:
  void hold();
  void note(int32_t number);

  mutable std::mutex mMutex;
  std::condition_variable mChanged;
  std::vector<int32_t> mNotes;  // guarded by mMutex
  bool mReleased = false;       // guarded by mMutex
};

}  // namespace test
