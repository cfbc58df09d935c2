#include "ClientConnection.h"

#include <atomic>
#include <cerrno>
#include <utility>
#include <vector>

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include "Log.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;

// Every client on the device sets it: its transactions may be answered with descriptors.
constexpr uint32_t kAcceptsFds = 0x10;

// How many forks lie between this process and the one that loaded the library. A child of fork(2) must not
// speak over its parent's connections.
std::atomic<int> gForks{0};
const int gCountsForks = pthread_atfork(nullptr, nullptr, [] { ++gForks; });

struct Kept {
  Kept(int32_t to, bool forOneWay, std::shared_ptr<RemoteService> of, unique_fd socket)
      : handle(to), oneway(forOneWay), service(std::move(of)), connection(std::move(socket)) {}

  const int32_t handle;
  const bool oneway;
  const int forks = gForks;
  const std::shared_ptr<RemoteService> service;
  ClientConnection connection;
};

// The connections of one thread. They close when it ends, or when it opens another one after their proxy has
// gone.
class ThreadConnections {
 public:
  static ThreadConnections& ofThisThread() {
    static thread_local ThreadConnections connections;
    return connections;
  }

  Kept* find(int32_t handle, bool oneway) {
    for (const auto& kept : mKept) {
      if (kept->handle == handle && kept->oneway == oneway && kept->forks == gForks) return kept.get();
    }
    return nullptr;
  }

  Kept* add(int32_t handle, bool oneway, std::shared_ptr<RemoteService> service, unique_fd socket) {
    std::erase_if(mKept, [](const auto& kept) {
      return kept->forks != gForks || serviceOf(kept->handle) != kept->service;
    });
    mKept.push_back(std::make_unique<Kept>(handle, oneway, std::move(service), std::move(socket)));
    return mKept.back().get();
  }

  void drop(const Kept* gone) {
    std::erase_if(mKept, [gone](const auto& kept) { return kept.get() == gone; });
  }

 private:
  std::vector<std::unique_ptr<Kept>> mKept;
};

android::status_t statusOfLoss(RemoteService& service) {
  return isAlive(service) ? android::FAILED_TRANSACTION : android::DEAD_OBJECT;
}

}  // namespace

android::status_t transact(int32_t handle, uint32_t code, const android::Parcel& data, android::Parcel* reply,
                           uint32_t flags) {
  if (data.errorCheck() != android::OK) return data.errorCheck();
  if (data.dataSize() > kMaxPayload) return android::FAILED_TRANSACTION;
  const FrameHeader header{
      static_cast<uint32_t>(FrameKind::Transaction), static_cast<uint32_t>(data.dataSize()), code,
      (flags & ~static_cast<uint32_t>(android::IBinder::FLAG_PRIVATE_VENDOR)) | kAcceptsFds};
  const bool oneway = isOneWay(header);
  auto& connections = ThreadConnections::ofThisThread();
  for (;;) {
    Kept* kept = connections.find(handle, oneway);
    const bool isNew = kept == nullptr;
    const auto service = isNew ? serviceOf(handle) : kept->service;
    if (service == nullptr || service->dead) return android::DEAD_OBJECT;
    if (isNew) {
      unique_fd socket = connectTo(*service);
      if (!socket.ok()) return service->dead ? android::DEAD_OBJECT : android::FAILED_TRANSACTION;
      kept = connections.add(handle, oneway, service, std::move(socket));
    }
    ClientConnection& server = kept->connection;
    const auto sent = oneway ? server.post(header, data.data()) : server.send(header, data.data());
    if (sent == ClientConnection::Sent::Full) return android::FAILED_TRANSACTION;
    if (sent == ClientConnection::Sent::Whole) {
      if (oneway) return android::OK;
      if (const auto status = server.receive(reply); status) return *status;
    }
    connections.drop(kept);
    // A server may have given up an idle connection to make room; then another one does it.
    if (sent == ClientConnection::Sent::Whole || isNew) return statusOfLoss(*service);
  }
}

void keepConnection(int32_t handle, std::shared_ptr<RemoteService> service, unique_fd socket) {
  ThreadConnections::ofThisThread().add(handle, /*oneway=*/false, std::move(service), std::move(socket));
}

ClientConnection::ClientConnection(unique_fd socket)
    : mSocket(std::move(socket)), mReader(mSocket.get(), FrameKind::Reply, std::nullopt) {}

ClientConnection::Sent ClientConnection::send(const FrameHeader& header, const uint8_t* payload) {
  const size_t size = sizeof(header) + header.size;
  for (size_t sent = 0; sent < size;) {
    const ssize_t taken = sendFrame(mSocket.get(), header, payload, sent, 0);
    if (taken < 0) return Sent::Broken;
    sent += static_cast<size_t>(taken);
  }
  return Sent::Whole;
}

ClientConnection::Sent ClientConnection::post(const FrameHeader& header, const uint8_t* payload) {
  const auto deadline = SteadyClock::now() + kOneWayPatience;
  // What was sent before must run before anything that is sent over another connection.
  if (mEnding) return waitFor(mSocket.get(), POLLIN, deadline) ? Sent::Broken : Sent::Full;
  const size_t size = sizeof(header) + header.size;
  for (size_t sent = 0; sent < size;) {
    const ssize_t taken = sendFrame(mSocket.get(), header, payload, sent, MSG_DONTWAIT);
    if (taken >= 0) {
      sent += static_cast<size_t>(taken);
      continue;
    }
    if (errno != EAGAIN) return Sent::Broken;
    if (!waitFor(mSocket.get(), POLLOUT, deadline)) {
      // Half a transaction cannot be taken back: the server would read what follows as its rest.
      if (sent != 0) mEnding = shutdown(mSocket.get(), SHUT_WR) == 0;
      return Sent::Full;
    }
  }
  return Sent::Whole;
}

std::optional<android::status_t> ClientConnection::receive(android::Parcel* reply) {
  if (!mReader.await()) return std::nullopt;
  android::Parcel unwanted;
  const auto status = readReply(reply != nullptr ? reply : &unwanted);
  if (status.ok()) return *status;
  ALOGW("a server %s", status.error().message().c_str());
  return std::nullopt;
}

android::base::Result<android::status_t> ClientConnection::readReply(android::Parcel* reply) {
  auto header = mReader.header();
  if (!header.ok()) return header.error();
  reply->freeData();
  if (auto read = mReader.payload(header->size, reply); !read.ok()) return read.error();
  return static_cast<android::status_t>(header->value);
}

}  // namespace platform::binder
