#pragma once

#include <atomic>

namespace platform::binder {

struct Worker;

// What stands behind a descriptor of the server's epoll set. A source is armed for one event at a time
// (EPOLLONESHOT): from the event until it arms itself again, the thread that got it is its only user.
class EventSource {
 public:
  virtual void onEvent(Worker& worker) = 0;

  // The kernel has the one who arms a source done before the one who gets its event; these two say so in
  // terms of the language. The server calls them.
  void handOver() { mHandedOver.store(true, std::memory_order_release); }
  void takeOver() const { static_cast<void>(mHandedOver.load(std::memory_order_acquire)); }

 protected:
  EventSource() = default;
  ~EventSource() = default;

 private:
  std::atomic<bool> mHandedOver{false};
};

}  // namespace platform::binder
