#pragma once

#include <mutex>
#include <string>

namespace platform {

// Lets a message through when it differs from the one before it, so that a fault which every look-up or
// event runs into is told once. Thread-safe.
class RepeatedMessage {
 public:
  bool isNew(const std::string& message) {
    std::lock_guard lock(mMutex);
    if (message == mLast) return false;
    mLast = message;
    return true;
  }

  // The fault is over: its next occurrence is news again.
  void clear() { (void)isNew(""); }

 private:
  std::mutex mMutex;
  std::string mLast;
};

}  // namespace platform
