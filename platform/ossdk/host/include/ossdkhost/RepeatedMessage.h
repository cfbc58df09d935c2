#pragma once

#include <string>
#include <utility>

#include "base/Mutex.h"

namespace platform {

// Lets a message through if it differs from the one before it, so that a fault that every look-up or event
// runs into is logged once. Thread-safe.
class RepeatedMessage {
 public:
  bool isNew(const std::string& message) {
    const Torv::Base::LockGuard lock(mMutex);
    return std::exchange(mLast, message) != message;
  }

  // Call it when the fault is over: its next occurrence is new again.
  void clear() { (void)isNew(""); }

 private:
  Torv::Base::Mutex mMutex;
  std::string mLast GUARDED_BY(mMutex);
};

}  // namespace platform
