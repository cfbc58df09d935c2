#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include <android-base/result.h>
#include <android-base/unique_fd.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include "AtomIntake.h"
#include "Limits.h"
#include "StatsEventFormat.h"
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

  // For startIn(). Both sockets are non-blocking: one for datagrams with their senders' credentials, and a
  // listening stream socket.
  Statsd(android::base::unique_fd atoms, android::base::unique_fd status);

  // Sets the configuration, see AtomIntake.
  [[nodiscard]] bool configure(ConfigKey key, std::vector<int32_t> atomIds, std::vector<std::string> sources);
  // Removes and returns the atoms of the configuration that were sent before the call, in order of arrival.
  Report fetch(ConfigKey key);
  // Returns the status with everything that was sent before the call. See AtomIntake.
  StatsdStatus status(uid_t asker);

 private:
  // Room for a datagram and for what the kernel says about its sender. A page is touched only when a datagram
  // lies there.
  struct Slot {
    std::array<char, kMaxDatagramBytes> bytes;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control;
  };

  void run();
  // Receives a batch, and logs what there is to say about it. Returns 0, or an errno if the socket fails.
  int receiveAndLog();
  void drain() REQUIRES(mLock);
  // Receives what the socket holds, at most kMaxBatch datagrams, and does not wait. Returns their number, or
  // a negated errno if the socket fails.
  int receiveBatch() REQUIRES(mLock);
  // Answers one connection. Returns 0, or an errno if the connection could not be accepted.
  int answerStatus();

  const android::base::unique_fd mAtomSocket;
  const android::base::unique_fd mStatusSocket;

  TurnLock mLock;
  AtomIntake mIntake GUARDED_BY(mLock);
  std::array<Slot, kMaxBatch> mSlots GUARDED_BY(mLock);
  // Point into the slots for good, because to fill in all of them costs as much as an atom.
  std::array<iovec, kMaxBatch> mVectors GUARDED_BY(mLock);
  std::array<mmsghdr, kMaxBatch> mMessages GUARDED_BY(mLock);
};

}  // namespace libstatsd
