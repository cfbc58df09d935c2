#include "RemoteService.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>
#include <utility>

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "Log.h"
#include "Threads.h"
#include "base/Mutex.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;
using Torv::Base::LockGuard;
using Torv::Base::Mutex;

// The servers that this process has met. A server's handle is its index plus 1: 0 is the service manager's on
// the device. A deque does not move its entries when it grows.
struct Servers {
  Mutex mutex;  // also for the proxies of the entries
  std::deque<RemoteService> entries GUARDED_BY(mutex);
  Threads watchers;
};

// Never destroyed, because threads may outlive main().
Servers& servers() {
  static Servers& all = *new Servers();
  return all;
}

void awaitDeath(int process, RemoteService& service) {
  pollfd ended{process, POLLIN, 0};
  if (TEMP_FAILURE_RETRY(poll(&ended, 1, -1)) <= 0) return;
  service.dead = true;
  android::sp<android::BpBinder> proxy;
  {
    const LockGuard guard(servers().mutex);
    proxy = service.proxy.promote();
  }
  if (proxy != nullptr) proxy->sendObituary();
}

}  // namespace

android::sp<android::IBinder> proxyFor(const ServiceAddress& address) {
  auto socket = connectTo(address);
  if (!socket.ok()) return nullptr;
  const pid_t server = peerOf(socket->get()).pid;
  const LockGuard guard(servers().mutex);
  auto& entries = servers().entries;
  const auto found = std::find_if(entries.begin(), entries.end(), [&](const RemoteService& service) {
    return !service.dead && service.server == server && service.address.path() == address.path();
  });
  const auto index = static_cast<size_t>(found - entries.begin());
  if (found == entries.end()) entries.emplace_back(address, server);
  keepConnection(entries[index], std::move(*socket));
  android::wp<android::BpBinder>& kept = entries[index].proxy;
  android::sp<android::BpBinder> proxy = kept.promote();
  if (proxy == nullptr) kept = proxy = android::BpBinder::create(static_cast<int32_t>(index) + 1);
  return proxy;
}

RemoteService& serviceOf(int32_t handle) {
  const LockGuard guard(servers().mutex);
  return servers().entries[static_cast<size_t>(handle) - 1];
}

unique_fd connectTo(RemoteService& service) {
  if (service.dead) return {};
  auto socket = connectTo(service.address);
  if (socket.ok() && peerOf(socket->get()).pid == service.server) return std::move(*socket);
  if (socket.ok() || socket.error().code() != EAGAIN) service.dead = true;
  return {};
}

bool watchForDeath(const android::BpBinder& proxy) {
  RemoteService& service = serviceOf(proxy.handle());
  if (service.watcher == getpid()) return !service.dead;
  // Not pidfd_open(): Debian 12 declares it without extern "C".
  const auto process =
      std::make_shared<unique_fd>(static_cast<int>(syscall(SYS_pidfd_open, service.server, 0)));
  if (!process->ok()) {
    ALOGE("cannot watch for the death of a service: %s", strerror(errno));
    return false;
  }
  // If the server still accepts, `process` is its own and not that of a later process with its pid.
  if (!connectTo(service).ok()) return false;
  const auto started =
      servers().watchers.start("BinderDeaths", [process, &service] { awaitDeath(process->get(), service); });
  if (!started.ok()) {
    ALOGE("cannot watch for the death of a service: %s", started.error().message().c_str());
    return false;
  }
  service.watcher = getpid();
  return true;
}

}  // namespace platform::binder
