#pragma once

#include <atomic>
#include <list>
#include <map>
#include <optional>
#include <string>

#include <sys/types.h>

#include <android-base/unique_fd.h>
#include <binder/Binder.h>

#include "Connection.h"
#include "Limits.h"
#include "Threads.h"
#include "base/Mutex.h"

namespace platform::binder {

// A process's side of the services that it publishes: a thread for each service accepts its connections,
// each connection has a thread, and each binder object has a thread for its one-way calls. The thread pool is
// a number of slots: a transaction takes one for as long as it runs. All threads block while there is nothing
// to do. Thread-safe.
class Server {
 public:
  explicit Server(const Limits& limits = {});
  // Stops, and waits for all threads to end.
  ~Server();

  // Serves `binder` to every process that connects to the listening socket. Logs an error if the system has
  // no thread left. Nothing is dispatched before the pool has a slot. `name` is for the log.
  void serve(const std::string& name, android::sp<android::BBinder> binder,
             android::base::unique_fd listener);

  // Sets how many slots the started pool has beside the first one and those of join(). Default: 15.
  void setMaxThreads(size_t count);
  // Gives the pool its slots. Calls after the first do nothing.
  void startPool();
  // Gives the pool one slot more, and waits for stop(). Then waits until the transactions that run have ended
  // and their replies are sent, at most kDrain.
  void join();
  // Ends the server: no connection or transaction is taken any more, and clients see a dead server. Does not
  // wait, so a transaction may call it.
  void stop();

 private:
  void acceptAll(const Service& service);
  void connect(const Service& service, android::base::unique_fd socket);
  bool makeRoomFor(uid_t uid) REQUIRES(mMutex);
  bool giveUpOne(std::optional<uid_t> ofUid) REQUIRES(mMutex);
  void forget(Connection& connection) REQUIRES(mMutex);
  void updateSlots() REQUIRES(mMutex);

  const size_t mMostConnections;
  Pool mPool;
  Threads mThreads;
  std::atomic<bool> mStopping{false};

  Torv::Base::Mutex mMutex;  // never held over a transaction
  Torv::Base::ConditionVariable mStopped;
  size_t mMaxThreads GUARDED_BY(mMutex) = 15;
  size_t mJoined GUARDED_BY(mMutex) = 0;
  bool mPoolStarted GUARDED_BY(mMutex) = false;
  // Each uid's, without those that have been given up. Their threads own them.
  std::map<uid_t, std::list<Connection*>> mConnections GUARDED_BY(mMutex);
  // Lists and maps, because the threads refer to their entries.
  std::list<Service> mServices GUARDED_BY(mMutex);
  std::map<const android::BBinder*, OneWayQueue> mOneWays GUARDED_BY(mMutex);
};

// The server of this process. It is never destroyed, because its threads may outlive main().
Server& processServer();

}  // namespace platform::binder
