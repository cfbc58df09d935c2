#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "AtomIntake.h"
#include "DatagramBatch.h"
#include "ServiceSockets.h"
#include "base/Mutex.h"

namespace libstatsd {

// A mutex that threads get in turn: a thread that waits gets it before the thread that just released it can
// lock it again. With a plain one, a receiver under a flood of atoms would keep a fetch waiting.
class CAPABILITY("mutex") TurnLock {
 public:
  void lock() ACQUIRE() {
    const Torv::Base::LockGuard turn(mTurn);
    mLock.lock();
  }
  void unlock() RELEASE() { mLock.unlock(); }

 private:
  Torv::Base::Mutex mTurn;  // held only while waiting for mLock
  Torv::Base::Mutex mLock;
};

// The statistics daemon of a host, inside the service's process: one for each runtime directory. It owns the
// directory's atom socket and status socket, and a thread that sleeps until one of them is readable.
//
// Whoever takes datagrams from the socket, the thread or a fetch, holds the lock until they are stored. A
// fetch that holds the lock therefore gets all atoms sent before it: what is not stored yet is still in the
// socket, and the fetch receives that itself. Nothing under the lock waits. Thread-safe.
class Statsd {
 public:
  // Returns the statsd of `directory` in this process, which lives until the process ends; starts it if this
  // is the first call for the directory. Returns an error if another process is the directory's service, or
  // if a socket cannot be made.
  [[nodiscard]] static android::base::Result<Statsd*> startIn(const std::string& directory);
  // Returns the one that has been started, or null.
  [[nodiscard]] static Statsd* runningIn(const std::string& directory);

  explicit Statsd(ServiceSockets sockets);  // for startIn()
  Statsd(const Statsd&) = delete;
  Statsd& operator=(const Statsd&) = delete;

  // Adds a configuration, or replaces its rules.
  void configure(ConfigKey key, const ConfigRules& rules);
  // Removes and returns the atoms of a configuration that were sent before the call, in order of arrival.
  std::vector<AtomRecord> fetch(ConfigKey key);
  // `asker` is the uid that wants to know whether it is heard.
  StatsdStatus status(uid_t asker);

 private:
  void run();
  bool receiveAndLog();
  void drain() REQUIRES(mLock);
  std::optional<size_t> receiveBatch() REQUIRES(mLock);
  bool answerStatus();

  const ServiceSockets mSockets;
  const size_t mQueueLength = kernelQueueLength();

  TurnLock mLock;
  AtomIntake mIntake GUARDED_BY(mLock);
  const std::unique_ptr<DatagramBatch> mBatch PT_GUARDED_BY(mLock) = std::make_unique<DatagramBatch>();
};

}  // namespace libstatsd
