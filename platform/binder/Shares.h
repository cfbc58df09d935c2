#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <semaphore>
#include <unordered_map>

#include <sys/types.h>

#include "Limits.h"
#include "base/Mutex.h"

namespace platform::binder {

// A counting semaphore that several uids share, so that none of them can keep the others out. A caller that
// asks for more than is free waits; waiters of one uid are served in the order in which they came.
// Thread-safe.
class Shares {
  struct GiveBack {
    uid_t uid = 0;
    size_t amount = 0;
    void operator()(Shares* shares) const { shares->giveBack(uid, amount); }
  };

 public:
  // What a caller of take() holds. Gives it back when it is destroyed or reset. Must not outlive the Shares.
  using Part = std::unique_ptr<Shares, GiveBack>;

  explicit Shares(const Share& share) : mShare(share) {}

  // Waits until `amount`, at most byUid, is free for the uid. Returns null after close(), also to those who
  // wait then.
  [[nodiscard]] Part take(uid_t uid, size_t amount);

  // Waiters for whom the new share has room get it at once. If more than the new share is in use, that stays
  // so until it is given back.
  void setShare(const Share& share);
  // From now on take() returns null at once. What is held may still be given back.
  void close();

 private:
  // Shared by the thread that waits and the list, so that it is there until release() has returned, too.
  struct Waiter {
    Waiter(uid_t ofUid, size_t wanted) : uid(ofUid), amount(wanted) {}

    const uid_t uid;
    const size_t amount;
    bool granted = false;  // guarded by mMutex until `decided` is released
    std::binary_semaphore decided{0};
  };

  // Returns false if there is no room.
  bool grant(uid_t uid, size_t amount) REQUIRES(mMutex);
  void giveBack(uid_t uid, size_t amount);
  void grantToWaiters() REQUIRES(mMutex);

  Torv::Base::Mutex mMutex;
  Share mShare GUARDED_BY(mMutex);
  bool mClosed GUARDED_BY(mMutex) = false;
  size_t mUsed GUARDED_BY(mMutex) = 0;
  // What each uid holds. A uid that has ever called keeps its entry, so that a transaction allocates nothing.
  std::unordered_map<uid_t, size_t> mHeld GUARDED_BY(mMutex);
  // In the order in which they came. Those about whom is decided are not in the list any more.
  std::list<std::shared_ptr<Waiter>> mWaiters GUARDED_BY(mMutex);
};

}  // namespace platform::binder
