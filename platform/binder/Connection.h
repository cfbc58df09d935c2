#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "Dispatch.h"
#include "EventSource.h"
#include "Frame.h"
#include "LocalSocket.h"
#include "StallWatch.h"

namespace platform::binder {

class OneWayQueue;
class Server;

// A service as its connections see it.
struct Service {
  std::string name;
  android::sp<android::BBinder> binder;
  std::shared_ptr<OneWayQueue> oneWays;
};

// The server's end of a client's connection. Two-way transactions are run by the thread that read them, one
// at a time; the next is not looked at before the reply has gone out whole. One-way transactions go to the
// queue of the binder object; a client that has too many of them waiting is not read from for a while.
class Connection final : public EventSource, public std::enable_shared_from_this<Connection> {
 public:
  Connection(Server& server, std::shared_ptr<const Service> service, android::base::unique_fd socket);
  ~Connection();

  void onEvent(Worker& worker) override;

  int fd() const { return mSocket.get(); }
  Peer peer() const { return mPeer; }
  // When it was last used, as a count of the server's events; 0 while it is in use. Any thread.
  uint64_t idleSince() const { return mIdleSince.load(std::memory_order_relaxed); }

  // Ends the connection because it stalls. Any thread; whoever has it next closes it.
  void drop();
  // A one-way transaction of this connection has run. Any thread.
  void oneWayDone(size_t payloadSize);

 private:
  enum class Next { Read, Write, Pause, Close };
  // All there was (Rest), perhaps not all (Full), or that the client has closed.
  enum class Received { Nothing, Rest, Full, End };

  Next advance(Worker& worker);
  Next awaitMore();
  Received receive(Worker& worker);
  void handle(const Frame& frame, Worker& worker);
  void enqueue(const Frame& frame, Worker& worker);
  void answer(const Frame& frame, Worker& worker);
  bool flush();
  void noteStall(bool progress);
  void endStall();
  std::string describe() const;

  Server& mServer;
  const std::shared_ptr<const Service> mService;
  const android::base::unique_fd mSocket;
  const Peer mPeer;
  std::atomic<uint64_t> mIdleSince{0};
  std::atomic<bool> mDropped{false};

  // Of the thread that has the event.
  FrameReader mReader{FrameKind::Transaction};
  std::vector<uint8_t> mOut;  // what the socket has not taken of a reply, from mOutSent on
  size_t mOutSent = 0;
  bool mBroken = false;  // the client is gone
  std::optional<StallWatch::Ticket> mStall;

  std::mutex mBacklogMutex;
  size_t mBacklog = 0;   // guarded by mBacklogMutex: bytes of one-way transactions that have not run
  bool mPaused = false;  // guarded by mBacklogMutex: not armed until the backlog is down
};

}  // namespace platform::binder
