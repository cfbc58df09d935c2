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
  android::wp<android::BpBinder> proxy;  // for proxyFor() and the watcher, which share a lock
  // the process that watches for its death: this one, or one that has forked it
  std::atomic<pid_t> watcher{0};
};

// Returns the proxy of the server that listens at `address`; as long as a caller holds that proxy, everybody
// gets the same one. Returns null if no server listens there, or if it is too busy to accept. The calling
// thread keeps the connection for its first transaction.
android::sp<android::IBinder> proxyFor(const ServiceAddress& address);

// Returns what the handle of a proxy stands for. The result is never destroyed: a process meets few servers.
RemoteService& serviceOf(int32_t handle);

// Returns a connection to this very server. The result is not valid if the server is dead, which is then
// noted in `service`, or if it is too busy to accept.
android::base::unique_fd connectTo(RemoteService& service);

// Keeps a connection to the service for the two-way transactions of the calling thread, or closes it if the
// thread has one.
void keepConnection(RemoteService& service, android::base::unique_fd socket);

// Runs a transaction over the calling thread's own connection to the service, which is made at first use and
// kept. Returns DEAD_OBJECT if the server is dead. Returns FAILED_TRANSACTION if the data is over
// kMaxPayload, if a living server closed the connection, and for a one-way call that the server has no room
// for at present. A child of fork(2) makes connections of its own.
android::status_t transact(RemoteService& service, uint32_t code, const android::Parcel& data,
                           android::Parcel* reply, uint32_t flags);

// Watches the server of the proxy from now on: when its process has ended, a thread calls sendObituary() of
// the proxy that proxyFor() returns then. Returns false if the server is dead already, or if it cannot be
// watched. A child of fork(2) watches for itself.
[[nodiscard]] bool watchForDeath(const android::BpBinder& proxy);

}  // namespace platform::binder
