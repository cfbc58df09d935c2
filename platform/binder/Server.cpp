#include "Server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <thread>
#include <tuple>
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

Server::Server(const Limits& limits) : mMostConnections(connectionsOf(limits)), mPool(limits) {}

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
  for (auto& [uid, connections] : mConnections) {
    for (Connection* const connection : connections) connection->giveUp();
  }
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
  mThreads.awaitAtMost(mMostConnections + kClosingConnections);
  const Peer peer = peerOf(socket.get());
  std::shared_ptr<Connection> connection;
  {
    const LockGuard guard(mMutex);
    if (mStopping) return;
    // First, because a flood has thousands of connections each second that are only refused.
    if (makeRoomFor(peer.uid)) {
      connection = std::make_shared<Connection>(mPool, service, peer, std::move(socket));
      mConnections[peer.uid].push_back(connection.get());
    }
  }
  if (connection == nullptr) {
    mPool.warn("a connection is refused, because all those of its uid are in use");
    return;
  }
  const auto body = [this, connection] {
    connection->run();
    const LockGuard guard(mMutex);
    forget(*connection);
  };
  if (const auto started = mThreads.start("BinderClient", body); !started.ok()) {
    mPool.warn(started.error().message());
    const LockGuard guard(mMutex);
    forget(*connection);
  }
}

// If the uid's share is used up or there is no room at all, gives up another connection. Returns false if
// none can be given up.
bool Server::makeRoomFor(uid_t uid) {
  const auto own = mConnections.find(uid);
  const size_t share = std::max<size_t>(mMostConnections / kConnectionShares, 1);
  if (own != mConnections.end() && own->second.size() >= share) return giveUpOne(uid);
  size_t all = 0;
  for (const auto& [any, connections] : mConnections) all += connections.size();
  return all < mMostConnections || giveUpOne(std::nullopt);
}

// Chooses among the connections of one uid, or of the uid that holds most: the one that has stalled for
// longest, else the one that has been idle for longest. The chosen connection is forgotten at once, although
// its thread has yet to end.
bool Server::giveUpOne(std::optional<uid_t> ofUid) {
  const auto now = SteadyClock::now();
  std::tuple<size_t, bool, SteadyClock::duration> most{};
  Connection* chosen = nullptr;
  for (const auto& [uid, connections] : mConnections) {
    if (ofUid && uid != *ofUid) continue;
    for (Connection* const connection : connections) {
      const Connection::State state = connection->state();
      const auto time = now - connection->inStateSince();
      if (state == Connection::State::Running || time < kGiveUpAfter) continue;
      const std::tuple claim{connections.size(), state == Connection::State::Transferring, time};
      if (claim <= most) continue;
      most = claim;
      chosen = connection;
    }
  }
  if (chosen == nullptr) return false;
  chosen->giveUp();
  forget(*chosen);
  return true;
}

// Does nothing if the connection has been given up.
void Server::forget(Connection& connection) {
  const auto own = mConnections.find(connection.uid());
  if (own == mConnections.end()) return;
  own->second.remove(&connection);
  if (own->second.empty()) mConnections.erase(own);
}

Server& processServer() {
  static Server& server = *new Server();
  return server;
}

}  // namespace platform::binder
