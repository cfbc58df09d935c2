#pragma once

#include <cstddef>
#include <list>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "base/Mutex.h"

namespace platform::binder {

// A counting semaphore that several uids share, so that none of them can keep the others out. Who asks for
// more than there is waits; waiters of one uid are served in the order in which they came. Thread-safe.
class Shares {
 public:
  struct Rule {
    size_t total = 0;
    // What a uid may hold at any time.
    size_t byUid = 0;
    // A uid may exceed its share if nobody else waits and this much stays free for others.
    size_t keptFree = SIZE_MAX;
  };

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

  explicit Shares(const Rule& rule) : mRule(rule) {}

  // Waits for `amount`, at most byUid. Returns an empty part after close().
  [[nodiscard]] Part take(uid_t uid, size_t amount);

  void setRule(const Rule& rule);
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

  struct Holder {
    uid_t uid;
    size_t amount;
  };

  bool fits(uid_t uid, size_t amount) const REQUIRES(mMutex);
  void grant(uid_t uid, size_t amount) REQUIRES(mMutex);
  void giveBack(uid_t uid, size_t amount);
  std::vector<Holder>::const_iterator holder(uid_t uid) const REQUIRES(mMutex);
  void grantToWaiters() REQUIRES(mMutex);

  Torv::Base::Mutex mMutex;
  Rule mRule GUARDED_BY(mMutex);
  bool mClosed GUARDED_BY(mMutex) = false;
  size_t mUsed GUARDED_BY(mMutex) = 0;
  // Only uids that hold something. They are few, and a vector takes them without allocating.
  std::vector<Holder> mHolders GUARDED_BY(mMutex);
  std::list<Waiter*> mWaiters GUARDED_BY(mMutex);  // in the order in which they came
};

}  // namespace platform::binder
