#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include <android-base/unique_fd.h>

#include "Dispatch.h"
#include "EventSource.h"

namespace platform::binder {

class Connection;
class Server;

// The one-way transactions of one binder object, run one after the other in the order in which they came from
// all clients. At most one thread runs them at a time, and it gives way to other work after each one when the
// pool has no idle thread left.
class OneWayQueue final : public EventSource, public std::enable_shared_from_this<OneWayQueue> {
 public:
  struct Item {
    FrameHeader header;
    std::vector<uint8_t> payload;
    std::shared_ptr<Connection> from;
  };

  OneWayQueue(Server& server, android::sp<android::BBinder> binder);

  // True where nobody runs the queue: the caller has become its runner and must call run() soon.
  [[nodiscard]] bool push(Item item);
  void run(Worker& worker);

  void onEvent(Worker& worker) override { run(worker); }

 private:
  // The next transaction, or false where there is none and the caller is no longer the runner.
  bool take(Item* item);

  Server& mServer;
  const android::sp<android::BBinder> mBinder;
  // Always readable: arming it asks for a turn of a pool thread.
  android::base::unique_fd mTurn;
  std::mutex mMutex;
  std::deque<Item> mItems;  // guarded by mMutex
  bool mRunning = false;    // guarded by mMutex
};

}  // namespace platform::binder
