#pragma once

namespace platform::binder {

struct Worker;

// What stands behind a descriptor of the server's epoll set. A source is armed for one event at a time
// (EPOLLONESHOT): from the event until it arms itself again, the thread that got it is its only user.
class EventSource {
 public:
  virtual void onEvent(Worker& worker) = 0;

 protected:
  ~EventSource() = default;
};

}  // namespace platform::binder
