// Locks that clang's -Wthread-safety can check. They are thin wrappers over the standard ones, whose own
// annotations are incomplete (libc++) or missing (libstdc++). The annotations (GUARDED_BY, REQUIRES, ...) are
// the platform's macros.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <android-base/thread_annotations.h>

#if !defined(__clang__)
// Only clang knows the attributes. g++ would warn about most and refuse some, so it gets none.
#undef THREAD_ANNOTATION_ATTRIBUTE__
#define THREAD_ANNOTATION_ATTRIBUTE__(x)
#endif

namespace Torv::Base {

// A non-recursive mutex. Locking it twice on one thread is undefined behaviour, as for std::mutex.
class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mMutex.lock(); }
  void unlock() RELEASE() { mMutex.unlock(); }
  bool try_lock() TRY_ACQUIRE(true) { return mMutex.try_lock(); }

 private:
  friend class ConditionVariable;

  std::mutex mMutex;
};

// A mutex that its holder may lock again. It is free when every lock() has had its unlock().
class CAPABILITY("mutex") RecursiveMutex {
 public:
  void lock() ACQUIRE() { mMutex.lock(); }
  void unlock() RELEASE() { mMutex.unlock(); }

 private:
  std::recursive_mutex mMutex;
};

// Holds a lock from construction to the end of the scope. The lock must outlive the guard.
template <typename Lock>
class SCOPED_CAPABILITY BasicLockGuard {
 public:
  explicit BasicLockGuard(Lock& lock) ACQUIRE(lock) : mLock(lock) { mLock.lock(); }
  ~BasicLockGuard() RELEASE() { mLock.unlock(); }
  BasicLockGuard(const BasicLockGuard&) = delete;
  BasicLockGuard& operator=(const BasicLockGuard&) = delete;

 private:
  Lock& mLock;
};

using LockGuard = BasicLockGuard<Mutex>;
using RecursiveLockGuard = BasicLockGuard<RecursiveMutex>;

// std::condition_variable for a Mutex. The caller of a wait holds the mutex; the wait releases it while it
// blocks and holds it again when it returns. A wait may return without a notification: callers check their
// condition in a loop.
class ConditionVariable {
 public:
  // Wake one waiting thread, or all. The caller need not hold the mutex.
  void notify_one() { mCondition.notify_one(); }
  void notify_all() { mCondition.notify_all(); }

  // Blocks until a notification.
  void wait(Mutex& mutex) REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.mMutex, std::adopt_lock);
    mCondition.wait(held);
    held.release();
  }

  // Blocks until a notification, for `atMost` at most. Returns std::cv_status::timeout if that has passed.
  // Any duration is safe: one of more than a century, whose end the clock could not express, counts as a
  // century.
  template <typename Rep, typename Period>
  std::cv_status wait_for(Mutex& mutex, const std::chrono::duration<Rep, Period>& atMost) REQUIRES(mutex) {
    using std::chrono::steady_clock;
    const auto timeout = atMost < kCentury ? std::chrono::duration_cast<steady_clock::duration>(atMost)
                                           : steady_clock::duration(kCentury);
    return wait_until(mutex, steady_clock::now() + timeout);
  }

  // Blocks until a notification, or until `deadline`. Returns std::cv_status::timeout if `deadline` has
  // passed.
  template <typename Clock, typename Duration>
  std::cv_status wait_until(Mutex& mutex, const std::chrono::time_point<Clock, Duration>& deadline)
      REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.mMutex, std::adopt_lock);
    const std::cv_status status = mCondition.wait_until(held, deadline);
    held.release();
    return status;
  }

 private:
  static constexpr std::chrono::hours kCentury{24 * 365 * 100};

  std::condition_variable mCondition;
};

}  // namespace Torv::Base
