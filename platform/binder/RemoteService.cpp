#include "RemoteService.h"

#include <map>
#include <mutex>
#include <utility>

#include <poll.h>
#include <pthread.h>

#include "ClientConnection.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;

// How long a server whose connection has ended may take to close the rest of its sockets when it is dying.
constexpr int kDyingMs = 50;

struct Handles {
  struct Entry {
    std::shared_ptr<RemoteService> service;
    android::wp<android::BpBinder> proxy;
  };
  std::mutex mutex;
  std::map<int32_t, Entry> entries;  // guarded by mutex
  int32_t next = 1;                  // guarded by mutex; 0 is the service manager's on the device
};

// A forked child keeps the proxies of its parent and calls over connections of its own, so the table is held
// while forking.
Handles& handles() {
  static Handles& table = *[] {
    static auto* const made = new Handles();
    pthread_atfork([] { made->mutex.lock(); }, [] { made->mutex.unlock(); }, [] { made->mutex.unlock(); });
    return made;
  }();
  return table;
}

// The live proxy that there is already, with the handle that it goes by.
android::sp<android::BpBinder> proxyInUse(Handles& table, const ServiceAddress& address,
                                          const ServiceIdentity& identity) {
  std::lock_guard guard(table.mutex);
  for (const auto& [handle, entry] : table.entries) {
    const RemoteService& service = *entry.service;
    if (service.dead || !(service.identity == identity) || service.address.path() != address.path()) continue;
    if (auto proxy = entry.proxy.promote(); proxy != nullptr) return proxy;
  }
  return nullptr;
}

android::sp<android::BpBinder> makeProxy(Handles& table, std::shared_ptr<RemoteService> service) {
  std::lock_guard guard(table.mutex);
  const int32_t handle = table.next++;
  android::sp<android::BpBinder> proxy = android::BpBinder::create(handle);
  table.entries.emplace(handle, Handles::Entry{std::move(service), proxy});
  return proxy;
}

}  // namespace

unique_fd connectTo(RemoteService& service) {
  auto made = service.dead ? std::nullopt : contact(service.address, /*wait=*/true);
  if (made && made->identity == service.identity) return std::move(made->socket);
  service.dead = true;
  return {};
}

bool isAlive(RemoteService& service) {
  if (service.dead) return false;
  const auto probe = contact(service.address, /*wait=*/false);
  bool alive = probe && probe->identity == service.identity;
  if (alive && probe->socket.ok()) {
    // A process that is being killed closes its sockets one after the other: give it time for the listener.
    pollfd waiting{probe->socket.get(), POLLIN, 0};
    alive = TEMP_FAILURE_RETRY(poll(&waiting, 1, kDyingMs)) == 0;
  }
  if (!alive) service.dead = true;
  return alive;
}

android::sp<android::IBinder> proxyFor(const ServiceAddress& address) {
  auto made = contact(address, /*wait=*/false);
  if (!made) return nullptr;
  Handles& table = handles();
  if (auto proxy = proxyInUse(table, address, made->identity); proxy != nullptr) return proxy;
  auto service = std::make_shared<RemoteService>(address, made->identity);
  auto proxy = makeProxy(table, service);
  if (made->socket.ok()) keepConnection(proxy->handle(), std::move(service), std::move(made->socket));
  return proxy;
}

std::shared_ptr<RemoteService> serviceOf(int32_t handle) {
  Handles& table = handles();
  std::lock_guard guard(table.mutex);
  const auto entry = table.entries.find(handle);
  return entry != table.entries.end() ? entry->second.service : nullptr;
}

void releaseHandle(int32_t handle) {
  Handles& table = handles();
  std::lock_guard guard(table.mutex);
  table.entries.erase(handle);
}

}  // namespace platform::binder
