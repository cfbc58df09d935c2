// The connections of a client's threads, and transactions over them.

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <list>
#include <optional>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include "Frame.h"
#include "Log.h"
#include "RemoteService.h"

namespace platform::binder {
namespace {

using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

// Every client on the device sets it. It means that transactions may be answered with descriptors.
constexpr uint32_t kAcceptsFds = 0x10;

// A process that is being killed closes its sockets one after the other, and the listener may be the last.
constexpr std::chrono::milliseconds kDying{50};

// How many forks lie between this process and the one that loaded the library. A child of fork(2) must not
// speak over its parent's connections.
std::atomic<int> gForks{0};
const int gCountsForks = pthread_atfork(nullptr, nullptr, [] { ++gForks; });

// A thread's connection to a service. A thread has two for a service, one of them for one-way calls only, so
// that its two-way calls do not wait for one-way calls that the server has not read yet.
class ClientConnection {
 public:
  ClientConnection(RemoteService& to, bool forOneWay, unique_fd socket)
      : service(to),
        oneway(forOneWay),
        mSocket(std::move(socket)),
        mReader(mSocket.get(), FrameKind::Reply, std::nullopt) {}

  // Returns false also for a child of fork(2), if its parent has made the connection.
  bool isFor(const RemoteService& wanted, bool wantsOneWay) const {
    return &service == &wanted && oneway == wantsOneWay && !isForeign();
  }
  bool isForeign() const { return mForks != gForks; }

  // Sends a two-way transaction, however long the server takes to read it, or a one-way transaction if the
  // server reads enough of what came before within kOneWayPatience. Errors: ETIMEDOUT if it does not; another
  // one if the server has closed. No part of the transaction runs then.
  Result<void> send(const FrameHeader& header, const uint8_t* payload);
  // Waits for the reply to a two-way transaction, and reads its parcel into `reply` unless that is null.
  // Returns nullopt if the server has closed or does not follow the protocol.
  std::optional<android::status_t> receive(android::Parcel* reply);

  RemoteService& service;
  const bool oneway;

 private:
  const int mForks = gForks;
  const unique_fd mSocket;
  FrameReader mReader;
  bool mEnding = false;  // half a one-way transaction was sent, and the server has to read to the end
};

using Connections = std::list<ClientConnection>;

// The connections close when their thread ends. Those to a dead server, and those of a parent process, close
// when the thread makes another one.
Connections& connectionsOfThisThread() {
  static thread_local Connections connections;
  return connections;
}

Connections::iterator find(const RemoteService& service, bool oneway) {
  auto& all = connectionsOfThisThread();
  return std::find_if(all.begin(), all.end(), [&](const auto& kept) { return kept.isFor(service, oneway); });
}

Connections::iterator add(RemoteService& service, bool oneway, unique_fd socket) {
  auto& all = connectionsOfThisThread();
  all.remove_if([](const auto& kept) { return kept.isForeign() || kept.service.dead; });
  return all.emplace(all.end(), service, oneway, std::move(socket));
}

// After a connection has ended, tells by a new connection whether the server lives: a living server closes
// connections too.
android::status_t statusOfLoss(RemoteService& service) {
  const unique_fd probe = connectTo(service);
  if (probe.ok() && waitFor(probe.get(), POLLIN, SteadyClock::now() + kDying)) service.dead = true;
  return service.dead ? android::DEAD_OBJECT : android::FAILED_TRANSACTION;
}

Result<void> ClientConnection::send(const FrameHeader& header, const uint8_t* payload) {
  const auto deadline = oneway ? SteadyClock::now() + kOneWayPatience : kForever;
  // What was sent before must run before anything that is sent over another connection.
  if (mEnding) {
    const bool ended = waitFor(mSocket.get(), POLLIN, deadline);
    return Error(ended ? EPIPE : ETIMEDOUT) << "the server has not read what was sent before";
  }
  size_t sent = 0;
  auto result = sendFrame(mSocket.get(), header, payload, &sent, deadline);
  // Half a transaction cannot be taken back: the server would read what follows as its rest.
  if (!result.ok() && sent != 0) mEnding = shutdown(mSocket.get(), SHUT_WR) == 0;
  return result;
}

std::optional<android::status_t> ClientConnection::receive(android::Parcel* reply) {
  if (!mReader.await()) return std::nullopt;
  android::Parcel unwanted;
  android::Parcel& data = reply != nullptr ? *reply : unwanted;
  data.freeData();
  const auto header = mReader.header();
  if (!header.ok()) {
    ALOGW("a server %s", header.error().message().c_str());
    return std::nullopt;
  }
  if (const auto read = mReader.payload(header->size, &data); !read.ok()) {
    ALOGW("a server %s", read.error().message().c_str());
    return std::nullopt;
  }
  return static_cast<android::status_t>(header->value);
}

}  // namespace

void keepConnection(RemoteService& service, unique_fd socket) {
  if (find(service, /*oneway=*/false) == connectionsOfThisThread().end()) {
    add(service, /*oneway=*/false, std::move(socket));
  }
}

android::status_t transact(RemoteService& service, uint32_t code, const android::Parcel& data,
                           android::Parcel* reply, uint32_t flags) {
  if (data.errorCheck() != android::OK) return data.errorCheck();
  if (data.dataSize() > kMaxPayload) return android::FAILED_TRANSACTION;
  const FrameHeader header{
      static_cast<uint32_t>(FrameKind::Transaction), static_cast<uint32_t>(data.dataSize()), code,
      (flags & ~static_cast<uint32_t>(android::IBinder::FLAG_PRIVATE_VENDOR)) | kAcceptsFds};
  const bool oneway = isOneWay(header);
  for (;;) {
    if (service.dead) return android::DEAD_OBJECT;
    auto server = find(service, oneway);
    const bool isNew = server == connectionsOfThisThread().end();
    if (isNew) {
      unique_fd socket = connectTo(service);
      if (!socket.ok()) return service.dead ? android::DEAD_OBJECT : android::FAILED_TRANSACTION;
      server = add(service, oneway, std::move(socket));
    }
    const auto sent = server->send(header, data.data());
    if (sent.ok() && oneway) return android::OK;
    if (sent.ok()) {
      if (const auto status = server->receive(reply); status) return *status;
    } else if (sent.error().code() == ETIMEDOUT) {
      return android::FAILED_TRANSACTION;
    }
    connectionsOfThisThread().erase(server);
    // A living server gives up idle connections to make room. No part of the transaction has run then, so it
    // is sent again over a new connection.
    if (sent.ok() || isNew) return statusOfLoss(service);
  }
}

}  // namespace platform::binder
