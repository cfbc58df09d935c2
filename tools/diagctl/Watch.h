// What commands share that keep looking at the service until somebody ends them.
#pragma once

#include <chrono>
#include <cstdint>
#include <future>
#include <map>
#include <optional>
#include <set>
#include <string>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

#include "timeline/Sources.h"

namespace diagctl {

// Asks on a thread of its own, because a call into a stopped service does not return. One call at a time; not
// thread-safe. Signals reach the caller's threads only.
class Asker {
 public:
  // Returns nullopt if no answer came within `patience`. The next call then waits for the same answer.
  std::optional<android::base::Result<timeline::Answer>> ask(bool withContext,
                                                             std::chrono::milliseconds patience);

  // True while a call has not returned. Its thread would still use what the process's end destroys: leave
  // with _exit.
  bool isStuck() const { return mAnswer.valid(); }

 private:
  std::future<android::base::Result<timeline::Answer>> mAnswer;
};

// The signals that end a command (SIGINT, SIGTERM, SIGHUP), as something to wait for. They end the process no
// more once one was made. Make it before any thread.
class EndSignals {
 public:
  EndSignals();

  // Returns true if one has come by `until`.
  // Blocks until a signal comes or the time is reached.
  bool waitUntil(std::chrono::steady_clock::time_point until) const;

  // Readable when one has come. Valid as long as this object.
  int fd() const { return mFd.get(); }

 private:
  android::base::unique_fd mFd;
};

// The processes of an answer that this machine has no more.
std::set<int32_t> deadOf(const std::map<int32_t, timeline::Texts>& processes);

// Gives each process's short name once.
class Names {
 public:
  // Returns the names of the processes that the call before did not have, as far as they run on this machine.
  std::map<int32_t, std::string> newOf(const std::map<int32_t, timeline::Texts>& processes);

 private:
  std::set<int32_t> mNamed;
};

}  // namespace diagctl
