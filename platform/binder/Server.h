#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include <android-base/unique_fd.h>
#include <binder/Binder.h>

#include "Connection.h"
#include "EventSource.h"
#include "StallWatch.h"

namespace platform::binder {

class Listener;

// What bad clients may take from a process at most.
struct ServerLimits {
  // For how long a frame may be begun and not ended, or a reply not be taken.
  std::chrono::milliseconds patience{5000};
  // What such frames and replies may hold together.
  size_t maxStalledBytes = size_t{32} * 1024 * 1024;
  // Connections at a time; 0: three quarters of the descriptors that the process may have.
  size_t maxConnections = 0;
  // For how long the process keeps what large replies took to make; longer while connections stall.
  std::chrono::milliseconds memoryKept{1000};
};

// A process's side of all the services that it publishes: one epoll set, and a pool of threads that lead in
// turn. A thread that takes an event deals with all that follows from it, a transaction included, and then
// waits again; when that leaves none waiting, the pool grows by one up to its maximum. Nothing wakes up while
// there is nothing to do. Thread-safe.
class Server {
 public:
  explicit Server(const ServerLimits& limits = {});
  // Stops first. Must not run on a thread of the pool.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Serves `binder` to whoever connects to `listener`. Nothing is dispatched before the pool has a thread.
  void serve(const std::string& name, android::sp<android::BBinder> binder,
             android::base::unique_fd listener);

  // How many threads the pool may start by itself, beside the first one and those that join. Default 15.
  void setMaxThreads(size_t count);
  // Starts the first thread of the pool, once.
  void startPool();
  // Lends the calling thread to the pool. Returns after stop(), when the pool's other threads have ended
  // their transactions, or after kDrain.
  void join();
  // Ends the pool: no new connection or transaction is taken, and clients see a dead server. Any thread.
  void stop();

  // The rest is for the pieces of the server.

  void watch(int fd, uint32_t events, EventSource* source);  // adds `fd` to the set
  void arm(int fd, uint32_t events, EventSource* source);    // asks for its next event
  bool hasIdleThread() const { return mIdle.load(std::memory_order_relaxed) > 0; }
  uint64_t countEvent() { return mEvents.fetch_add(1, std::memory_order_relaxed) + 1; }
  StallWatch& stalls() { return mStalls; }
  StallWatch::Ticket stalled(StallWatch::Clock::time_point now, size_t bytes, Connection& connection);
  // Has free memory given back to the system before long.
  void releaseMemorySoon();

  // Takes on the connections that wait at `listener`, then arms it; where there is no room for another one,
  // it drops the one that has been idle for longest and arms the listener when there is.
  void acceptAll(Listener& listener);
  void forget(const Connection& connection);

 private:
  class Timer;
  class StopSignal;

  void run();
  void growPool();
  void spawnThread();
  bool hasRoom();
  void waitForRoom(Listener& listener);
  void armWaitingListeners();
  void addConnection(Listener& listener, android::base::unique_fd socket);
  void leavePool();

  const android::base::unique_fd mEpoll;
  const android::base::unique_fd mStopEvent;
  const std::unique_ptr<Timer> mTimer;
  StallWatch mStalls;
  std::atomic<int> mIdle{0};
  std::atomic<uint64_t> mEvents{0};
  std::atomic<bool> mStopping{false};
  std::atomic<bool> mKeepsMemory{false};
  const std::chrono::milliseconds mMemoryKept;

  std::mutex mMutex;  // guards all that follows; never held over a transaction
  std::condition_variable mPoolChanged;
  size_t mMaxThreads = 15;
  size_t mSpawned = 0;  // threads started because none was idle
  size_t mInPool = 0;   // threads in run()
  bool mPoolStarted = false;
  std::vector<std::unique_ptr<Listener>> mListeners;
  std::vector<Listener*> mWaitingListeners;  // for room
  std::map<const android::BBinder*, std::shared_ptr<OneWayQueue>> mOneWays;
  std::unordered_map<const Connection*, std::shared_ptr<Connection>> mConnections;
  const size_t mMaxConnections;
};

// The server of this process. A forked child gets one of its own.
Server& processServer();

}  // namespace platform::binder
