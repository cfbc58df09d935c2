// The client's side: what the handle of a proxy stands for, and transactions with it. All functions are
// thread-safe.
#pragma once

#include "parcel/ParcelHeader.h"

#include <atomic>

#include <android-base/unique_fd.h>
#include <binder/BpBinder.h>

#include "ServiceAddress.h"

namespace platform::binder {

// One server process of a name. Once it has died it stays dead, also if another process takes its address.
struct RemoteService {
  RemoteService(ServiceAddress at, pid_t serverPid) : address(std::move(at)), server(serverPid) {}

  const ServiceAddress address;
  const pid_t server;
  std::atomic<bool> dead{false};
};

// Returns the proxy of the server that listens at `address`; as long as a caller holds that proxy, everybody
// gets the same one. Returns null if no server listens there, or if it is too busy to accept.
android::sp<android::IBinder> proxyFor(const ServiceAddress& address);

// Returns what the handle of a proxy stands for. The result is never destroyed: a process meets few servers.
RemoteService& serviceOf(int32_t handle);

// Returns a connection to this very server. The result is not valid if the server is dead, which is then
// noted in `service`, or if it is too busy to accept.
android::base::unique_fd connectTo(RemoteService& service);

// Runs a transaction over the calling thread's own connection to the service, which is made at first use and
// kept. Returns DEAD_OBJECT if the server is dead. Returns FAILED_TRANSACTION if the data is over
// kMaxPayload, if a living server closed the connection, and for a one-way call that the server has no room
// for at present. A child of fork(2) makes connections of its own.
android::status_t transact(RemoteService& service, uint32_t code, const android::Parcel& data,
                           android::Parcel* reply, uint32_t flags);

// Calls sendObituary() of the proxy when the process of its server has ended, on a thread of its own. Returns
// false if the server is dead already, or if it cannot be watched. A child of fork(2) does not watch what its
// parent watches. Call it once for a proxy.
[[nodiscard]] bool watchForDeath(android::BpBinder& proxy);
// The proxy calls it in its destructor, whether it was watched or not.
void stopWatchingForDeath(const android::BpBinder& proxy);

}  // namespace platform::binder
