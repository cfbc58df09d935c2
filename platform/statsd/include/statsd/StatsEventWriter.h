// Client library of statsd for whoever publishes atoms.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>

#include <android-base/unique_fd.h>

#include <statsd/StatsEvent.h>

namespace libstatsd {

enum class WriteResult {
  Sent,      // it lies in the service's queue, or beyond
  TooLarge,  // the event was given up (see StatsEvent)
  Lost,      // no service, or its queue stayed full for 20 ms
};

// Sends events to the service of the current runtime directory; connects at the first write and again after
// the service was restarted. A write never waits longer than 20 ms, and only while the service's queue is
// full. Lost events are counted, and the service is told of them before the next event that reaches it.
// Thread-safe; threads do not wait for each other.
class StatsEventWriter {
 public:
  // Not [[nodiscard]]: most applications have nothing better to do than to go on.
  WriteResult write(const StatsEvent& event);

  // The newest value of one of process `pid`'s states (atom 110010).
  WriteResult publishApplicationState(int32_t pid, std::string_view key, std::string_view value);
  // The ids of the present telemetry session (atom 111983).
  WriteResult publishTelemetrySession(std::string_view serviceSessionId,
                                      std::string_view userActiveSessionId);

 private:
  using Socket = std::shared_ptr<const android::base::unique_fd>;

  struct Losses {
    uint32_t count = 0;
    int32_t lastErrno = 0;
    int32_t lastAtomId = 0;
  };

  Socket connected();
  void disconnect(const Socket& socket);
  int send(std::string_view payload, int64_t deadlineNs);
  void tellLosses(int64_t deadlineNs);

  std::mutex mMutex;  // never held over a system call that can wait
  Socket mSocket;     // guarded by mMutex, as is mLosses
  Losses mLosses;     // not told yet
};

}  // namespace libstatsd
