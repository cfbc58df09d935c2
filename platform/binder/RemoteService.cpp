#include "RemoteService.h"

#include <map>
#include <utility>

#include <poll.h>

#include "ClientConnection.h"
#include "Socket.h"
#include "base/Mutex.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;
using Torv::Base::LockGuard;

// A process that is being killed closes its sockets one after the other, and the listener may be the last.
constexpr std::chrono::milliseconds kDying{50};

struct Handles {
  struct Entry {
    std::shared_ptr<RemoteService> service;
    android::wp<android::BpBinder> proxy;
  };
  Torv::Base::Mutex mutex;
  std::map<int32_t, Entry> entries GUARDED_BY(mutex);
  int32_t next GUARDED_BY(mutex) = 1;  // 0 is the service manager's on the device
};

Handles& handles() {
  static Handles& table = *new Handles();
  return table;
}

// The proxy of that server that is in use already, or null.
android::sp<android::BpBinder> proxyInUse(Handles& table, const ServiceAddress& address, pid_t server) {
  const LockGuard guard(table.mutex);
  for (const auto& [handle, entry] : table.entries) {
    const RemoteService& service = *entry.service;
    if (service.dead || service.server != server || service.address.path() != address.path()) continue;
    if (auto proxy = entry.proxy.promote(); proxy != nullptr) return proxy;
  }
  return nullptr;
}

android::sp<android::BpBinder> makeProxy(Handles& table, std::shared_ptr<RemoteService> service) {
  const LockGuard guard(table.mutex);
  const int32_t handle = table.next++;
  android::sp<android::BpBinder> proxy = android::BpBinder::create(handle);
  table.entries.emplace(handle, Handles::Entry{std::move(service), proxy});
  return proxy;
}

}  // namespace

unique_fd connectTo(RemoteService& service) {
  if (service.dead) return {};
  auto socket = connectTo(service.address);
  if (socket.ok() && peerOf(socket->get()).pid == service.server) return std::move(*socket);
  if (socket.ok() || socket.error().code() != EAGAIN) service.dead = true;
  return {};
}

bool isAlive(RemoteService& service) {
  const unique_fd probe = connectTo(service);
  if (probe.ok() && waitFor(probe.get(), POLLIN, SteadyClock::now() + kDying)) service.dead = true;
  return !service.dead;
}

android::sp<android::IBinder> proxyFor(const ServiceAddress& address) {
  auto socket = connectTo(address);
  if (!socket.ok()) return nullptr;
  const pid_t server = peerOf(socket->get()).pid;
  Handles& table = handles();
  if (auto proxy = proxyInUse(table, address, server); proxy != nullptr) return proxy;
  auto service = std::make_shared<RemoteService>(address, server);
  auto proxy = makeProxy(table, service);
  keepConnection(proxy->handle(), std::move(service), std::move(*socket));
  return proxy;
}

std::shared_ptr<RemoteService> serviceOf(int32_t handle) {
  Handles& table = handles();
  const LockGuard guard(table.mutex);
  const auto entry = table.entries.find(handle);
  return entry != table.entries.end() ? entry->second.service : nullptr;
}

void releaseHandle(int32_t handle) {
  Handles& table = handles();
  const LockGuard guard(table.mutex);
  table.entries.erase(handle);
}

}  // namespace platform::binder
