#pragma once

#include <cstddef>
#include <functional>

#include <android-base/result.h>

#include "Frame.h"
#include "base/Mutex.h"

namespace platform::binder {

// The detached threads of a server, counted. Must outlive its threads. Thread-safe.
class Threads {
 public:
  // Runs `body` on a new thread with a stack of kStackSize. Returns an error if the system has no thread
  // left. `name` is for the kernel, at most 15 characters, and must live as long as the thread.
  android::base::Result<void> start(const char* name, std::function<void()> body);

  // Waits until at most `count` threads run, or until the deadline has passed. By then a thread that has
  // ended has also destroyed its body.
  void awaitAtMost(size_t count, SteadyClock::time_point deadline = SteadyClock::time_point::max());

 private:
  Torv::Base::Mutex mMutex;
  Torv::Base::ConditionVariable mEnded;
  size_t mCount GUARDED_BY(mMutex) = 0;
};

}  // namespace platform::binder
