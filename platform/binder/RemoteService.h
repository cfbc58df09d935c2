// What the handle of a proxy stands for on the client's side.
#pragma once

#include "parcel/ParcelHeader.h"

#include <atomic>
#include <memory>

#include <android-base/unique_fd.h>
#include <binder/BpBinder.h>

#include "ServiceAddress.h"

namespace platform::binder {

// One server of a name for as long as it lives. Once it has died it stays dead, whoever takes its address.
struct RemoteService {
  RemoteService(ServiceAddress at, pid_t serverPid) : address(std::move(at)), server(serverPid) {}

  const ServiceAddress address;
  const pid_t server;
  std::atomic<bool> dead{false};
};

// Returns a connection to this very server; not valid if it is dead, which is then noted in `service`, or too
// busy to accept.
android::base::unique_fd connectTo(RemoteService& service);

// Asks the kernel whether the server still lives, after a connection to it has ended: a living server closes
// connections too. Notes in `service` if it does not.
bool isAlive(RemoteService& service);

// Returns the proxy of the server that listens at `address`, the same one for as long as somebody holds it.
// Returns null if nobody listens there, or accepts. Thread-safe, as are the functions below.
android::sp<android::IBinder> proxyFor(const ServiceAddress& address);

// Returns what the handle stands for; null for a handle that is not in use.
std::shared_ptr<RemoteService> serviceOf(int32_t handle);
// The proxy calls it when it goes.
void releaseHandle(int32_t handle);

// Calls sendObituary() of a proxy when its server dies. Each watched proxy has a connection of its own to the
// server, and a thread that waits for its end and makes the call. Returns false if the server is dead
// already, or cannot be watched. A child of fork(2) does not watch what its parent watches. Thread-safe.
[[nodiscard]] bool watchForDeath(int32_t handle, std::shared_ptr<RemoteService> service,
                                 const android::wp<android::BpBinder>& proxy);
void stopWatchingForDeath(int32_t handle);

}  // namespace platform::binder
