#include "RemoteService.h"

#include <map>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "ClientConnection.h"
#include "Log.h"
#include "Threads.h"
#include "base/Mutex.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;
using Torv::Base::LockGuard;
using Torv::Base::Mutex;

// A process that is being killed closes its sockets one after the other, and the listener may be the last.
constexpr std::chrono::milliseconds kDying{50};

struct Handles {
  struct Entry {
    std::shared_ptr<RemoteService> service;
    android::wp<android::BpBinder> proxy;
  };
  Mutex mutex;
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

class Watch {
 public:
  Watch(std::shared_ptr<RemoteService> service, android::wp<android::BpBinder> proxy, unique_fd socket)
      : mService(std::move(service)), mProxy(std::move(proxy)), mSocket(std::move(socket)) {}

  // Waits for the death, or for cancel().
  void run() {
    while (awaitEnd()) {
    }
    const auto proxy = isCancelled() ? nullptr : mProxy.promote();
    if (proxy != nullptr) proxy->sendObituary();
  }

  void cancel() {
    const LockGuard guard(mMutex);
    mCancelled = true;
    shutdown(mSocket.get(), SHUT_RDWR);
  }

 private:
  // Waits for the end of the connection. A living server may give up an idle connection; then there is a new
  // one to wait for, and the result is true.
  bool awaitEnd() {
    char unexpected = 0;
    while (TEMP_FAILURE_RETRY(recv(fd(), &unexpected, 1, 0)) > 0) {
    }
    if (isCancelled() || !isAlive(*mService)) return false;
    unique_fd next = connectTo(*mService);
    const LockGuard guard(mMutex);
    mSocket = std::move(next);
    return mSocket.ok() && !mCancelled;
  }

  int fd() {
    const LockGuard guard(mMutex);
    return mSocket.get();
  }
  bool isCancelled() {
    const LockGuard guard(mMutex);
    return mCancelled;
  }

  const std::shared_ptr<RemoteService> mService;
  const android::wp<android::BpBinder> mProxy;
  Mutex mMutex;
  unique_fd mSocket GUARDED_BY(mMutex);  // only run() replaces it
  bool mCancelled GUARDED_BY(mMutex) = false;
};

struct Watches {
  Mutex mutex;
  std::map<int32_t, std::shared_ptr<Watch>> byHandle GUARDED_BY(mutex);
  Threads threads;
};

Watches& watches() {
  static Watches& all = *new Watches();
  return all;
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

bool watchForDeath(int32_t handle, std::shared_ptr<RemoteService> service,
                   const android::wp<android::BpBinder>& proxy) {
  unique_fd socket = connectTo(*service);
  if (!socket.ok()) return false;
  auto watch = std::make_shared<Watch>(std::move(service), proxy, std::move(socket));
  const auto started = watches().threads.start("BinderDeaths", [watch] { watch->run(); });
  if (!started.ok()) {
    ALOGE("cannot watch for the death of a service: %s", started.error().message().c_str());
    return false;
  }
  const LockGuard guard(watches().mutex);
  watches().byHandle[handle] = std::move(watch);
  return true;
}

void stopWatchingForDeath(int32_t handle) {
  const LockGuard guard(watches().mutex);
  const auto watch = watches().byHandle.find(handle);
  if (watch == watches().byHandle.end()) return;
  watch->second->cancel();
  watches().byHandle.erase(watch);
}

}  // namespace platform::binder
