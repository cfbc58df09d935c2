#include "RemoteService.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <map>
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
  struct Entry {
    Entry(const ServiceAddress& address, pid_t server) : service(address, server) {}

    RemoteService service;
    android::wp<android::BpBinder> proxy;
  };
  Mutex mutex;
  std::deque<Entry> entries GUARDED_BY(mutex);
};

// Never destroyed, because threads may outlive main().
Servers& servers() {
  static Servers& all = *new Servers();
  return all;
}

struct Watches {
  Mutex mutex;
  // The writing end of a pipe for each watched proxy. When it closes, the watching thread ends.
  std::map<const android::BpBinder*, unique_fd> stops GUARDED_BY(mutex);
  Threads threads;
};

Watches& watches() {
  static Watches& all = *new Watches();
  return all;
}

void awaitDeath(const unique_fd& process, const unique_fd& stop, const android::wp<android::BpBinder>& of) {
  pollfd events[] = {{process.get(), POLLIN, 0}, {stop.get(), POLLIN, 0}};
  if (TEMP_FAILURE_RETRY(poll(events, 2, -1)) <= 0 || events[0].revents == 0) return;
  if (const auto proxy = of.promote(); proxy != nullptr) proxy->sendObituary();
}

}  // namespace

android::sp<android::IBinder> proxyFor(const ServiceAddress& address) {
  const auto socket = connectTo(address);
  if (!socket.ok()) return nullptr;
  const pid_t server = peerOf(socket->get()).pid;
  const LockGuard guard(servers().mutex);
  auto& entries = servers().entries;
  const auto found = std::find_if(entries.begin(), entries.end(), [&](const Servers::Entry& known) {
    const RemoteService& service = known.service;
    return !service.dead && service.server == server && service.address.path() == address.path();
  });
  const auto index = static_cast<size_t>(found - entries.begin());
  if (found == entries.end()) entries.emplace_back(address, server);
  android::wp<android::BpBinder>& kept = entries[index].proxy;
  android::sp<android::BpBinder> proxy = kept.promote();
  if (proxy == nullptr) kept = proxy = android::BpBinder::create(static_cast<int32_t>(index) + 1);
  return proxy;
}

RemoteService& serviceOf(int32_t handle) {
  const LockGuard guard(servers().mutex);
  return servers().entries[static_cast<size_t>(handle) - 1].service;
}

unique_fd connectTo(RemoteService& service) {
  if (service.dead) return {};
  auto socket = connectTo(service.address);
  if (socket.ok() && peerOf(socket->get()).pid == service.server) return std::move(*socket);
  if (socket.ok() || socket.error().code() != EAGAIN) service.dead = true;
  return {};
}

bool watchForDeath(android::BpBinder& proxy) {
  RemoteService& service = serviceOf(proxy.handle());
  // Not pidfd_open(): Debian 12 declares it without extern "C".
  unique_fd process(static_cast<int>(syscall(SYS_pidfd_open, service.server, 0)));
  unique_fd stopped;
  unique_fd stop;
  if (!process.ok() || !android::base::Pipe(&stopped, &stop)) {
    ALOGE("cannot watch for the death of a service: %s", strerror(errno));
    return false;
  }
  // If the server still accepts, `process` is its own and not that of a later process with its pid.
  if (!connectTo(service).ok()) return false;
  struct Descriptors {
    unique_fd process;
    unique_fd stopped;
  };
  const auto fds = std::make_shared<Descriptors>(Descriptors{std::move(process), std::move(stopped)});
  const android::wp<android::BpBinder> weak(&proxy);
  const auto started =
      watches().threads.start("BinderDeaths", [fds, weak] { awaitDeath(fds->process, fds->stopped, weak); });
  if (!started.ok()) {
    ALOGE("cannot watch for the death of a service: %s", started.error().message().c_str());
    return false;
  }
  const LockGuard guard(watches().mutex);
  watches().stops[&proxy] = std::move(stop);
  return true;
}

void stopWatchingForDeath(const android::BpBinder& proxy) {
  const LockGuard guard(watches().mutex);
  watches().stops.erase(&proxy);
}

}  // namespace platform::binder
