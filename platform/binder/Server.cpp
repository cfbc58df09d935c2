#include "Server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
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
  auto& oneWays = mOneWays[binder.get()];
  if (oneWays == nullptr) oneWays = std::make_shared<OneWayQueue>(binder, mPool.slots, mThreads);
  auto service = std::make_shared<const Service>(Service{name, std::move(binder), oneWays});
  auto listener = std::make_unique<const Listener>(std::move(service), std::move(socket));
  const auto started = mThreads.start("BinderAccept", [this, &it = *listener] { acceptAll(it); });
  if (!started.ok()) ALOGE("%s is not served: %s", name.c_str(), started.error().message().c_str());
  mListeners.push_back(std::move(listener));
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
  for (const auto& listener : mListeners) shutdown(listener->socket.get(), SHUT_RDWR);
  for (const auto& [binder, queue] : mOneWays) queue->stop();
  mPool.close();
  mConnections.giveUpAll();
  mStopped.notify_all();
}

void Server::updateSlots() {
  const size_t slots = (mPoolStarted ? 1 + mMaxThreads : 0) + mJoined;
  mPool.slots.setShare({slots, slotsByUid(slots)});
}

// The loop of a listener's thread. Connections are accepted at once and then refused if need be: in the
// kernel's queue the ones of a flood would keep all others waiting.
void Server::acceptAll(const Listener& listener) {
  for (;;) {
    unique_fd socket(accept4(listener.socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (mStopping) return;
    if (socket.ok()) {
      connect(listener, std::move(socket));
    } else if (isShortage(errno)) {
      warn("cannot accept a connection: the process has no descriptors or no memory left");
      std::this_thread::sleep_for(kAcceptPause);
    } else if (errno != ECONNABORTED && errno != EINTR) {
      ALOGE("%s is not served any more: %s", listener.service->name.c_str(), strerror(errno));
      return;
    }
  }
}

void Server::connect(const Listener& listener, unique_fd socket) {
  mThreads.awaitAtMost(mConnections.most() + kClosingConnections);
  const Peer peer = peerOf(socket.get());
  if (!mConnections.reserve(peer.uid)) {
    warn("a connection is refused, because all those of its uid are in use");
    return;
  }
  const auto connection = std::make_shared<Connection>(mPool, listener.service, std::move(socket), peer);
  mConnections.add(*connection);
  const auto started = mThreads.start("BinderClient", [this, connection] {
    connection->run();
    mConnections.remove(*connection);
  });
  if (started.ok()) {
    if (mStopping) connection->giveUp();  // stop() may have been too early to see it
    return;
  }
  warn(started.error().message());
  mConnections.remove(*connection);
}

void Server::warn(const std::string& what) {
  const uint64_t times = mPool.warnings.count();
  if (times != 0) ALOGW("%s%s", what.c_str(), warningsNote(times).c_str());
}

Server& processServer() {
  static Server& server = *new Server();
  return server;
}

}  // namespace platform::binder
