#include "Server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Log.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;
using Torv::Base::LockGuard;

size_t connectionsOf(const Limits& limits) {
  if (limits.connections != 0) return limits.connections;
  rlimit descriptors{};
  if (getrlimit(RLIMIT_NOFILE, &descriptors) != 0) return kReservedDescriptors;
  const auto limit = static_cast<size_t>(std::min<rlim_t>(descriptors.rlim_cur, kMaxConnections * 2));
  // A process that may have few descriptors keeps half of them.
  return std::min(limit - std::min(kReservedDescriptors, limit / 2), kMaxConnections);
}

// The system has no descriptors or no memory left.
bool isShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS;
}

}  // namespace

Server::Server(const Limits& limits) : mPool(limits), mConnections(connectionsOf(limits)) {}

Server::~Server() {
  stop();
  mThreads.awaitAtMost(0);
}

void Server::serve(const std::string& name, android::sp<android::BBinder> binder, unique_fd socket) {
  const LockGuard guard(mMutex);
  OneWayQueue& queue = mOneWays.try_emplace(binder.get(), binder, mPool.slots, mThreads).first->second;
  mServices.push_back(Service{name, std::move(binder), queue, std::move(socket)});
  const auto started =
      mThreads.start("BinderAccept", [this, &service = mServices.back()] { acceptAll(service); });
  if (!started.ok()) ALOGE("%s is not served: %s", name.c_str(), started.error().message().c_str());
}

void Server::setMaxThreads(size_t count) {
  const LockGuard guard(mMutex);
  mMaxThreads = count;
  updateSlots();
}

void Server::startPool() {
  const LockGuard guard(mMutex);
  mPoolStarted = true;
  updateSlots();
}

void Server::join() {
  {
    const LockGuard guard(mMutex);
    ++mJoined;
    updateSlots();
    while (!mStopping) mStopped.wait(mMutex);
  }
  mThreads.awaitAtMost(0, SteadyClock::now() + kDrain);
}

void Server::stop() {
  const LockGuard guard(mMutex);
  if (mStopping.exchange(true)) return;
  for (const Service& service : mServices) shutdown(service.listener.get(), SHUT_RDWR);
  for (auto& [binder, queue] : mOneWays) queue.stop();
  mPool.close();
  mConnections.giveUpAll();
  mStopped.notify_all();
}

void Server::updateSlots() {
  const size_t slots = (mPoolStarted ? 1 + mMaxThreads : 0) + mJoined;
  mPool.slots.setShare({slots, slotsByUid(slots)});
}

// The loop of a service's thread. It accepts every connection at once and then refuses some if need be: if
// they stayed in the kernel's queue, those of a flood would keep all others waiting.
void Server::acceptAll(const Service& service) {
  for (;;) {
    unique_fd socket(accept4(service.listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (mStopping) return;
    if (socket.ok()) {
      connect(service, std::move(socket));
    } else if (isShortage(errno)) {
      mPool.warn("cannot accept a connection: the process has no descriptors or no memory left");
      std::this_thread::sleep_for(kAcceptPause);
    } else if (errno != ECONNABORTED && errno != EINTR) {
      ALOGE("%s is not served any more: %s", service.name.c_str(), strerror(errno));
      return;
    }
  }
}

void Server::connect(const Service& service, unique_fd socket) {
  mThreads.awaitAtMost(mConnections.most() + kClosingConnections);
  const auto connection = std::make_shared<Connection>(mPool, service, std::move(socket));
  if (!mConnections.add(*connection)) {
    mPool.warn("a connection is refused, because all those of its uid are in use");
    return;
  }
  const auto started = mThreads.start("BinderClient", [this, connection] {
    connection->run();
    mConnections.remove(*connection);
  });
  if (!started.ok()) {
    mPool.warn(started.error().message());
    mConnections.remove(*connection);
  }
  if (mStopping) connection->giveUp();  // stop() may have been too early to see it
}

Server& processServer() {
  static Server& server = *new Server();
  return server;
}

}  // namespace platform::binder
