#include "ClientConnection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include "Fork.h"
#include "LocalSocket.h"
#include "Log.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;

// How long a one-way call waits for a server whose queues are full before it fails.
constexpr std::chrono::milliseconds kPostPatience{1000};
// What a reply is read into before its size is known.
constexpr size_t kStagingSize = size_t{16} * 1024;
// Set by every client on the device: its transactions may be answered with descriptors.
constexpr uint32_t kAcceptsFds = 0x10;

// The connections of one thread. They close when it ends, and when it opens another one after their handle or
// their process is gone.
class ThreadConnections {
 public:
  static ThreadConnections& ofThisThread() {
    static thread_local ThreadConnections connections;
    return connections;
  }

  struct Kept {
    int32_t handle;
    bool oneway;
    uint32_t generation;
    std::shared_ptr<RemoteService> service;
    ClientConnection connection;
  };

  // The one that is kept, or null.
  Kept* find(int32_t handle, bool oneway) {
    const uint32_t generation = forkGeneration();
    for (const auto& kept : mKept) {
      if (kept->handle == handle && kept->oneway == oneway && kept->generation == generation)
        return kept.get();
    }
    return nullptr;
  }

  Kept* add(int32_t handle, bool oneway, std::shared_ptr<RemoteService> service, unique_fd socket) {
    std::erase_if(mKept, [](const auto& kept) {
      return kept->generation != forkGeneration() || serviceOf(kept->handle) != kept->service;
    });
    mKept.push_back(std::make_unique<Kept>(
        Kept{handle, oneway, forkGeneration(), std::move(service), ClientConnection(std::move(socket))}));
    return mKept.back().get();
  }

  void drop(const Kept* gone) {
    std::erase_if(mKept, [gone](const auto& kept) { return kept.get() == gone; });
  }

 private:
  std::vector<std::unique_ptr<Kept>> mKept;
};

// A connection that is kept, or a new one; null where the service is dead.
ThreadConnections::Kept* connection(ThreadConnections& connections, int32_t handle, bool oneway,
                                    bool* isNew) {
  ThreadConnections::Kept* kept = connections.find(handle, oneway);
  *isNew = kept == nullptr;
  if (kept != nullptr) return kept->service->dead ? nullptr : kept;
  auto service = serviceOf(handle);
  unique_fd socket = service != nullptr ? connectTo(*service) : unique_fd();
  if (!socket.ok()) return nullptr;
  return connections.add(handle, oneway, std::move(service), std::move(socket));
}

// What becomes of a call whose connection has ended: the reason is the server's death or its displeasure.
android::status_t statusOfLoss(RemoteService& service) {
  return isAlive(service) ? android::FAILED_TRANSACTION : android::DEAD_OBJECT;
}

}  // namespace

android::status_t transact(int32_t handle, uint32_t code, const android::Parcel& data, android::Parcel* reply,
                           uint32_t flags) {
  if (data.errorCheck() != android::OK) return data.errorCheck();
  if (data.dataSize() > kMaxPayload) return android::FAILED_TRANSACTION;
  const bool oneway = (flags & android::IBinder::FLAG_ONEWAY) != 0;
  const FrameHeader header{
      static_cast<uint32_t>(FrameKind::Transaction), static_cast<uint32_t>(data.dataSize()), code,
      (flags & ~static_cast<uint32_t>(android::IBinder::FLAG_PRIVATE_VENDOR)) | kAcceptsFds};
  auto& connections = ThreadConnections::ofThisThread();
  for (;;) {
    bool isNew = false;
    auto* const kept = connection(connections, handle, oneway, &isNew);
    if (kept == nullptr) return android::DEAD_OBJECT;
    ClientConnection& server = kept->connection;
    const auto sent = oneway ? server.post(header, data.data()) : server.send(header, data.data());
    if (sent == ClientConnection::Sent::Full) return android::FAILED_TRANSACTION;
    if (sent == ClientConnection::Sent::Whole) {
      if (oneway) return android::OK;
      if (const auto status = server.receive(reply); status) return *status;
    }
    const auto service = kept->service;
    connections.drop(kept);
    // A server may have closed an idle connection to make room; then another one does it.
    if (sent == ClientConnection::Sent::Whole || isNew) return statusOfLoss(*service);
  }
}

void keepConnection(int32_t handle, std::shared_ptr<RemoteService> service, unique_fd socket) {
  const int flags = fcntl(socket.get(), F_GETFL);
  if (flags < 0 || fcntl(socket.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) return;
  ThreadConnections::ofThisThread().add(handle, /*oneway=*/false, std::move(service), std::move(socket));
}

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
  const auto deadline = std::chrono::steady_clock::now() + kPostPatience;
  // What was sent before must be taken before anything that is sent anew.
  if (mEnding) return waitFor(POLLIN, deadline) ? Sent::Broken : Sent::Full;
  const size_t size = sizeof(header) + header.size;
  for (size_t sent = 0; sent < size;) {
    const ssize_t taken = sendFrame(mSocket.get(), header, payload, sent, MSG_DONTWAIT);
    if (taken >= 0) {
      sent += static_cast<size_t>(taken);
      continue;
    }
    if (errno != EAGAIN) return Sent::Broken;
    if (!waitFor(POLLOUT, deadline)) {
      // Half a transaction cannot be taken back: what follows it would be read as its end.
      if (sent != 0) mEnding = shutdown(mSocket.get(), SHUT_WR) == 0;
      return Sent::Full;
    }
  }
  return Sent::Whole;
}

bool ClientConnection::waitFor(short event, std::chrono::steady_clock::time_point deadline) {
  using std::chrono::milliseconds;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    pollfd waiting{mSocket.get(), event, 0};
    const int ready = poll(&waiting, 1, static_cast<int>(std::max<long>(left, 0)));
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
    if (ready == 0) return false;
  }
}

std::optional<android::status_t> ClientConnection::receive(android::Parcel* reply) {
  static thread_local std::array<uint8_t, sizeof(FrameHeader) + kStagingSize> staging;
  size_t got = 0;
  while (got < sizeof(FrameHeader)) {
    const ssize_t size =
        TEMP_FAILURE_RETRY(recv(mSocket.get(), staging.data() + got, staging.size() - got, 0));
    if (size <= 0) return std::nullopt;
    got += static_cast<size_t>(size);
  }
  FrameHeader header;
  memcpy(&header, staging.data(), sizeof(header));
  got -= sizeof(header);
  const char* const fault = faultOf(header, FrameKind::Reply);
  if (fault != nullptr || got > header.size) {
    logWarning("a server answered with %s", fault != nullptr ? fault : "more than one reply");
    return std::nullopt;
  }
  android::Parcel unwanted;
  if (reply == nullptr) reply = &unwanted;
  reply->freeData();
  auto* const target = static_cast<uint8_t*>(reply->writeInplace(header.size));
  if (target == nullptr) return std::nullopt;
  memcpy(target, staging.data() + sizeof(header), got);
  while (got < header.size) {
    const ssize_t size =
        TEMP_FAILURE_RETRY(recv(mSocket.get(), target + got, header.size - got, MSG_WAITALL));
    if (size <= 0) return std::nullopt;
    got += static_cast<size_t>(size);
  }
  reply->setDataSize(header.size);
  reply->setDataPosition(0);
  return static_cast<android::status_t>(header.value);
}

}  // namespace platform::binder
