// Locks that clang's -Wthread-safety can follow: thin over the standard ones, whose own annotations are
// incomplete (libc++) or missing (libstdc++).
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define TORV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define TORV_THREAD_ANNOTATION(x)
#endif

// Said of a type that is a lock, and of a guard that holds one for its life.
#define CAPABILITY(x) TORV_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY TORV_THREAD_ANNOTATION(scoped_lockable)
// Said of data: only touched with the lock held.
#define GUARDED_BY(x) TORV_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) TORV_THREAD_ANNOTATION(pt_guarded_by(x))
// Said of a function: the caller holds the lock, or must not.
#define REQUIRES(...) TORV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) TORV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
// Said of a function that takes or gives up the lock.
#define ACQUIRE(...) TORV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) TORV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) TORV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS TORV_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace Torv::OS {

class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mMutex.lock(); }
  void unlock() RELEASE() { mMutex.unlock(); }
  bool try_lock() TRY_ACQUIRE(true) { return mMutex.try_lock(); }

 private:
  friend class ConditionVariable;

  std::mutex mMutex;
};

class CAPABILITY("mutex") RecursiveMutex {
 public:
  void lock() ACQUIRE() { mMutex.lock(); }
  void unlock() RELEASE() { mMutex.unlock(); }

 private:
  std::recursive_mutex mMutex;
};

// Holds a lock from construction to the end of the scope.
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

// The standard condition variable on a Mutex that the caller holds; it is held again on return.
class ConditionVariable {
 public:
  void notify_one() { mCondition.notify_one(); }

  template <typename Rep, typename Period>
  std::cv_status wait_for(Mutex& mutex, const std::chrono::duration<Rep, Period>& atMost) REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.mMutex, std::adopt_lock);
    const std::cv_status status = mCondition.wait_for(held, atMost);
    held.release();
    return status;
  }

 private:
  std::condition_variable mCondition;
};

}  // namespace Torv::OS
