#pragma once

#include <cstdint>
#include <utility>

#include "base/Clock.h"
#include "base/Mutex.h"

namespace platform {

// Limits the log lines that other processes can cause: at most one for each pause; the others are counted,
// and the next line says how many they were. One object for each kind of line. Thread-safe.
//
//   static platform::LogLimit limit;
//   if (const uint64_t times = limit.count()) log(std::to_string(times) + " malformed frames");
class LogLimit {
 public:
  static constexpr int64_t kSecondNs = 1'000'000'000;

  explicit LogLimit(int64_t pauseNs = kSecondNs) : mPauseNs(pauseNs) {}

  // Counts one occurrence. Returns 0 if the caller must not log now, because less than the pause has passed
  // since the last line; otherwise the number of occurrences since that line, this one included. `nowNs` is
  // a reading of one monotonic clock. The count of the last occurrences stays untold until the next one.
  uint64_t count(int64_t nowNs = Torv::Base::bootTimeNs()) {
    const Torv::Base::LockGuard lock(mMutex);
    ++mCounted;
    if (mLogged && nowNs - mLoggedAtNs < mPauseNs) return 0;
    mLogged = true;
    mLoggedAtNs = nowNs;
    return std::exchange(mCounted, 0);
  }

 private:
  const int64_t mPauseNs;
  Torv::Base::Mutex mMutex;
  bool mLogged GUARDED_BY(mMutex) = false;
  int64_t mLoggedAtNs GUARDED_BY(mMutex) = 0;
  uint64_t mCounted GUARDED_BY(mMutex) = 0;
};

}  // namespace platform
