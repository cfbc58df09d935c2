#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

#include "DatagramBatch.h"
#include "EventProcessor.h"
#include "ReportEncoder.h"
#include "ServiceSockets.h"

namespace libstatsd {

// A lock that is taken in turn: whoever waits for it gets it before a thread that just gave it up can take
// it again. A receiver under a flood would else keep a fetch out.
class TurnLock {
 public:
  void lock() {
    std::lock_guard turn(mTurn);
    mLock.lock();
  }
  void unlock() { mLock.unlock(); }

 private:
  std::mutex mTurn;  // held only while waiting for mLock
  std::mutex mLock;
};

// The statistics daemon of a host, one in a process and runtime directory. It owns the atom socket and the
// status socket of the directory, and a thread that sleeps in poll(2) until one of them has something.
//
// Whoever takes datagrams from the socket (the thread in batches, or a fetch) holds mLock from the receiving
// to the storing, so a fetch that holds it sees all that was sent before: what is not stored yet is in the
// socket, and the fetch takes that itself. Nothing under the lock waits for anything.
class Statsd {
 public:
  // Becomes the service of `directory` and starts to receive. Returns an error if another process is that
  // service, or if a socket cannot be made.
  [[nodiscard]] static android::base::Result<std::unique_ptr<Statsd>> start(const std::string& directory);

  // What start() ends with, on sockets of its making.
  Statsd(ServiceSockets sockets, android::base::unique_fd stop);
  // Stops the thread and closes the sockets.
  ~Statsd();

  // All three are thread-safe.
  void configure(ConfigKey key, const ConfigRules& rules);
  // The serialised ConfigMetricsReportList of all atoms sent before the call and not fetched yet; it is
  // empty, and so are its bytes, where there are none.
  std::string fetch(ConfigKey key);
  StatsdStatus status(uid_t asker);

 private:
  void run();
  bool receiveAndLog();
  void drain();                          // needs mLock
  std::optional<size_t> receiveBatch();  // needs mLock
  void logNotices(const std::vector<std::string>& notices);
  bool answerStatus();

  const ServiceSockets mSockets;
  const android::base::unique_fd mStop;  // an eventfd
  const size_t mQueueLength;             // datagrams that the kernel holds for us

  TurnLock mLock;
  EventProcessor mProcessor;  // guarded by mLock, as are the next two
  std::unique_ptr<DatagramBatch> mBatch;
  std::map<ConfigKey, std::pair<int64_t, int64_t>> mLastReport;  // elapsed and wall-clock ns

  std::thread mThread;
};

}  // namespace libstatsd
