#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <binder/Binder.h>

#include "Connection.h"
#include "ConnectionTable.h"
#include "Limits.h"
#include "Threads.h"
#include "base/Mutex.h"

namespace platform::binder {

// A process's side of the services that it publishes: a thread for each listener, for each connection, and
// for the one-way calls of each binder object. The thread pool is a number of slots: a transaction takes one
// for as long as it runs. All threads block while there is nothing to do. Thread-safe.
class Server {
 public:
  explicit Server(const Limits& limits = {});
  // Stops, and waits for all threads to end.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Serves `binder` to whoever connects to the listening socket. Nothing is dispatched before the pool has a
  // slot.
  void serve(const std::string& name, android::sp<android::BBinder> binder,
             android::base::unique_fd listener);

  // How many slots the started pool has beside the first one and those of join(). Default: 15.
  void setMaxThreads(size_t count);
  // Gives the pool its slots. Calls after the first do nothing.
  void startPool();
  // Gives the pool one slot more, and waits for stop(). Then returns when the transactions that run have
  // ended and their replies are sent, or after kDrain.
  void join();
  // Ends the server: no connection or transaction is taken any more, and clients see a dead server. Does not
  // wait, so a transaction may call it.
  void stop();

 private:
  struct Listener {
    Listener(std::shared_ptr<const Service> of, android::base::unique_fd at)
        : service(std::move(of)), socket(std::move(at)) {}

    const std::shared_ptr<const Service> service;
    const android::base::unique_fd socket;
  };

  void acceptAll(const Listener& listener);
  void connect(const Listener& listener, android::base::unique_fd socket);
  void warn(const std::string& what);
  void updateSlots() REQUIRES(mMutex);

  Pool mPool;
  ConnectionTable mConnections;
  Threads mThreads;
  std::atomic<bool> mStopping{false};

  Torv::Base::Mutex mMutex;  // never held over a transaction
  Torv::Base::ConditionVariable mStopped;
  size_t mMaxThreads GUARDED_BY(mMutex) = 15;
  size_t mJoined GUARDED_BY(mMutex) = 0;
  bool mPoolStarted GUARDED_BY(mMutex) = false;
  std::vector<std::unique_ptr<const Listener>> mListeners GUARDED_BY(mMutex);
  std::map<const android::BBinder*, std::shared_ptr<OneWayQueue>> mOneWays GUARDED_BY(mMutex);
};

// The server of this process. It is never destroyed, because its threads may outlive main().
Server& processServer();

}  // namespace platform::binder
