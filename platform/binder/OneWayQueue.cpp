#include "OneWayQueue.h"

#include <utility>

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include "Connection.h"
#include "Server.h"

namespace platform::binder {

OneWayQueue::OneWayQueue(Server& server, android::sp<android::BBinder> binder)
    : mServer(server), mBinder(std::move(binder)), mTurn(eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)) {
  mServer.watch(mTurn.get(), 0, this);
}

bool OneWayQueue::push(Item item) {
  std::lock_guard guard(mMutex);
  mItems.push_back(std::move(item));
  return !std::exchange(mRunning, true);
}

void OneWayQueue::run(Worker& worker) {
  Item item;
  while (take(&item)) {
    const Frame frame{item.header, item.payload.data()};
    dispatch(*mBinder, item.from->peer(), frame, worker);
    std::exchange(item.from, nullptr)->oneWayDone(item.payload.size());
    if (!mServer.hasIdleThread()) {
      mServer.arm(mTurn.get(), EPOLLIN, this);
      return;
    }
  }
}

bool OneWayQueue::take(Item* item) {
  std::lock_guard guard(mMutex);
  if (mItems.empty()) {
    mRunning = false;
    return false;
  }
  *item = std::move(mItems.front());
  mItems.pop_front();
  return true;
}

}  // namespace platform::binder
