#include "systemstatecollector/CollectorsMutex.h"

namespace Torv::OS::Diagnostics {

void CollectorsMutex::lock() {
  const Base::LockGuard lock(mMutex);
  while (mHeld) mReleased.wait(mMutex);
  take();
}

void CollectorsMutex::unlock() {
  const Base::LockGuard lock(mMutex);
  mHeld = false;
  mReleased.notify_all();
}

bool CollectorsMutex::lockUnlessStuck() {
  const Base::LockGuard lock(mMutex);
  bool isPatient = false;
  while (mHeld) {
    const Clock::duration heldFor = Clock::now() - mHeldSince;
    if (heldFor >= mPatience.stuck) break;
    if (heldFor >= mPatience.busy && !isPatient) {
      if (mPatientWaiters == mPatience.patientWaiters) break;
      isPatient = true;
      ++mPatientWaiters;
    }
    mReleased.wait_until(mMutex, mHeldSince + (isPatient ? mPatience.stuck : mPatience.busy));
  }
  if (isPatient) --mPatientWaiters;
  if (mHeld) return false;
  take();
  return true;
}

void CollectorsMutex::take() {
  mHeld = true;
  mHeldSince = Clock::now();
}

}  // namespace Torv::OS::Diagnostics
