#pragma once

#include <cstddef>
#include <list>
#include <unordered_map>
#include <utility>

#include <sys/types.h>

#include "Limits.h"
#include "base/Mutex.h"

namespace platform::binder {

// A counting semaphore that several uids share, so that none of them can keep the others out. Who asks for
// more than there is waits; waiters of one uid are served in the order in which they came. Thread-safe.
class Shares {
 public:
  // What somebody holds. Gives it back at the end of its life. Must not outlive the Shares.
  class Part {
   public:
    Part() = default;
    Part(Part&& other) noexcept { *this = std::move(other); }
    Part& operator=(Part&& other) noexcept;
    ~Part() { giveBack(); }

    explicit operator bool() const { return mFrom != nullptr; }
    // Gives it back now.
    void giveBack();

   private:
    friend class Shares;
    Part(Shares* from, uid_t uid, size_t amount) : mFrom(from), mUid(uid), mAmount(amount) {}

    Shares* mFrom = nullptr;
    uid_t mUid = 0;
    size_t mAmount = 0;
  };

  explicit Shares(const Share& share) : mShare(share) {}

  // Waits for `amount`, at most byUid. Returns an empty part after close().
  [[nodiscard]] Part take(uid_t uid, size_t amount);

  void setShare(const Share& share);
  // From now on nobody gets anything, and nobody waits.
  void close();

 private:
  struct Waiter {
    Waiter(uid_t who, size_t wanted) : uid(who), amount(wanted) {}

    const uid_t uid;
    const size_t amount;
    bool granted = false;
    Torv::Base::ConditionVariable changed;
  };

  // Grants it if there is room.
  bool grant(uid_t uid, size_t amount) REQUIRES(mMutex);
  void giveBack(uid_t uid, size_t amount);
  void grantToWaiters() REQUIRES(mMutex);

  Torv::Base::Mutex mMutex;
  Share mShare GUARDED_BY(mMutex);
  bool mClosed GUARDED_BY(mMutex) = false;
  size_t mUsed GUARDED_BY(mMutex) = 0;
  // What each uid holds. A uid that has ever called keeps its entry, so that a transaction allocates nothing.
  std::unordered_map<uid_t, size_t> mHeld GUARDED_BY(mMutex);
  std::list<Waiter*> mWaiters GUARDED_BY(mMutex);  // in the order in which they came
};

}  // namespace platform::binder
