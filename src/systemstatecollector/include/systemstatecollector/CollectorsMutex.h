#pragma once

#include <chrono>

#include "base/Mutex.h"

namespace Torv::OS::Diagnostics {

// The manager's lock over its collectors. A poll holds it while it reads from drivers, so a driver that hangs
// keeps it for as long as it hangs. lockUnlessStuck() therefore gives up on a holder that is stuck, and waits
// for one that is merely busy. It tells them apart by how long the holder has had the lock: waiting behind
// many short holders is never cut short. Thread-safe.
class CAPABILITY("mutex") CollectorsMutex {
 public:
  struct Patience {
    // A holder is busy until it has had the lock this long; everybody waits for it. It is several times what
    // a poll or a dump takes on a loaded machine.
    std::chrono::milliseconds busy{500};
    // From then until this time, only `patientWaiters` threads wait for it. Later, nobody does.
    std::chrono::milliseconds stuck{2000};
    int patientWaiters = 2;
  };

  explicit CollectorsMutex(const Patience& patience) : mPatience(patience) {}

  // Waits for the lock as long as it takes. Not recursive.
  void lock() ACQUIRE() EXCLUDES(mMutex);
  void unlock() RELEASE() EXCLUDES(mMutex);
  // Waits for the lock and takes it. Returns false without it if the holder is stuck.
  [[nodiscard]] bool lockUnlessStuck() TRY_ACQUIRE(true) EXCLUDES(mMutex);

 private:
  using Clock = std::chrono::steady_clock;

  void take() REQUIRES(mMutex);

  const Patience mPatience;
  Base::Mutex mMutex;
  Base::ConditionVariable mReleased;
  bool mHeld GUARDED_BY(mMutex) = false;
  Clock::time_point mHeldSince GUARDED_BY(mMutex);  // by the present holder
  int mPatientWaiters GUARDED_BY(mMutex) = 0;       // wait beyond `busy`
};

}  // namespace Torv::OS::Diagnostics
